#include "tests/support/Screen.h"

#include <X11/Xlib.h>
#include <signal.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "tests/support/Files.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += word + " ";
  }
  return text;
}

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

int number(const std::string& lines, const std::string& name) {
  const std::size_t at = lines.find(name + "=");
  if (at == std::string::npos) {
    throw std::runtime_error("no " + name + " in " + lines);
  }
  return std::stoi(lines.substr(at + name.size() + 1));
}

}  // namespace

Screen::Screen(const std::string& size)
    : server_({.arguments = {"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0", size + "x24", "-nolisten",
                             "tcp", "-noreset"},
               .outputFile = folder_.file("server")}) {
  // The number stands on a line of its own, behind what the server had to complain about.
  const auto number = [this] {
    std::string found;
    std::istringstream lines(fileExists(folder_.file("server")) ? readFile(folder_.file("server")) : "");
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
      found = line.find_first_not_of("0123456789") == std::string::npos ? line : found;
    }
    return found;
  };
  if (!waitUntil([&] { return !number().empty(); })) {
    throw std::runtime_error("the X server does not start: " + readFile(folder_.file("server")));
  }
  display_ = number().insert(0, 1, ':');
}

std::string Screen::window(const std::string& title) {
  std::string found;
  if (!waitUntil([&] {
        found = firstLine(tool({"search", "--onlyvisible", "--name", "^" + title}, true));
        return !found.empty();
      })) {
    throw std::runtime_error("there is no window " + title);
  }
  return found;
}

std::size_t Screen::windowCount(const std::string& title) {
  const std::string found = tool({"search", "--onlyvisible", "--name", "^" + title}, true);
  return static_cast<std::size_t>(std::count(found.begin(), found.end(), '\n'));
}

pid_t Screen::processOf(const std::string& window) {
  return static_cast<pid_t>(std::stol(tool({"getwindowpid", window})));
}

Screen::Geometry Screen::geometry(const std::string& window) {
  const std::string lines = tool({"getwindowgeometry", "--shell", window});
  return {number(lines, "X"), number(lines, "Y"), number(lines, "WIDTH"), number(lines, "HEIGHT")};
}

void Screen::press(const std::string& window, const std::vector<std::string>& keys) {
  std::vector<std::string> arguments = {"windowfocus", "--sync", window, "key"};
  arguments.insert(arguments.end(), keys.begin(), keys.end());
  tool(arguments);
}

void Screen::type(const std::string& window, const std::string& text) {
  tool({"windowfocus", "--sync", window, "type", "--delay", "1", "--", text});
}

void Screen::click(int x, int y) {
  tool({"mousemove", "--sync", std::to_string(x), std::to_string(y), "click", "1"});
}

void Screen::close(const std::string& window) {
  const std::unique_ptr<Display, decltype(&XCloseDisplay)> connection(XOpenDisplay(display_.c_str()),
                                                                      XCloseDisplay);
  if (connection == nullptr) {
    throw std::runtime_error("no connection to the X server");
  }
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = std::stoul(window);
  event.xclient.message_type = XInternAtom(connection.get(), "WM_PROTOCOLS", False);
  event.xclient.format = 32;
  event.xclient.data.l[0] = static_cast<long>(XInternAtom(connection.get(), "WM_DELETE_WINDOW", False));
  XSendEvent(connection.get(), event.xclient.window, False, NoEventMask, &event);
  XSync(connection.get(), False);
}

int Screen::photograph(const std::string& window, const std::string& file) {
  program({"/usr/bin/import", "-window", window, "-strip", "+dither", "-colors", "64", file});
  return std::stoi(program({"/usr/bin/identify", "-format", "%k", file}));
}

std::string Screen::clipboard() {
  return program({"/usr/bin/xclip", "-out", "-selection", "clipboard"}, true);
}

void Screen::stop() {
  kill(server_.id(), SIGTERM);
}

std::string Screen::program(const std::vector<std::string>& arguments, bool mayFail) {
  const std::string output = folder_.file("output");
  writeFile(output, "");
  ChildProcess process(
      {.arguments = arguments, .environment = {{"DISPLAY", display_}}, .outputFile = output});
  const auto end = process.wait();
  if (!end || (end->exitStatus != 0 && !mayFail)) {
    throw std::runtime_error(joined(arguments) + ": " + readFile(output));
  }
  return end->exitStatus == 0 ? readFile(output) : std::string();
}

std::string Screen::tool(const std::vector<std::string>& arguments, bool mayFail) {
  std::vector<std::string> all = {"/usr/bin/xdotool"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return program(all, mayFail);
}

}  // namespace test
