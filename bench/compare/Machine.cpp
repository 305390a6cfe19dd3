#include "bench/compare/Machine.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

namespace bench {
namespace {

std::string lineOf(const char* file, const std::string& label) {
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(label)) {
      const std::size_t colon = line.find_first_of(":=");
      return line.substr(line.find_first_not_of(" \t\"", colon + 1));
    }
  }
  return "";
}

/// The first line that a command says.
std::string firstLine(const char* command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command, "r"), pclose);
  std::array<char, 256> line{};
  if (!pipe || std::fgets(line.data(), line.size(), pipe.get()) == nullptr) {
    return "";
  }
  std::string text = line.data();
  return text.substr(0, text.find_last_not_of("\n ") + 1);
}

std::string withoutQuote(const std::string& text) {
  return text.substr(0, text.find('"'));
}

}  // namespace

Json::Value describeMachine() {
  utsname system{};
  uname(&system);
  Json::Value machine;
  machine["processor"] = lineOf("/proc/cpuinfo", "model name");
  machine["processors"] = std::thread::hardware_concurrency();
  machine["memoryMegabytes"] =
      Json::Int64(sysconf(_SC_PHYS_PAGES)) * Json::Int64(sysconf(_SC_PAGESIZE)) / (1024L * 1024);
  machine["kernel"] = std::string(system.sysname) + " " + system.release;
  machine["distribution"] = withoutQuote(lineOf("/etc/os-release", "PRETTY_NAME"));
  Json::Value& versions = machine["versions"];
  versions["nginx"] = firstLine("/usr/sbin/nginx -v 2>&1 | sed 's,.*nginx/,,'");
  versions["libcurl"] = firstLine("pkg-config --modversion libcurl");
  versions["OpenSSL"] = firstLine("openssl version | cut -d' ' -f2");
  versions["GLib"] = firstLine("pkg-config --modversion glib-2.0");
  versions["libsoup"] = firstLine("pkg-config --modversion libsoup-3.0");
  versions["Qt"] = QT_VERSION_TEXT;
  versions["curl"] = firstLine("curl --version | cut -d' ' -f2");
  versions["aria2c"] = firstLine("aria2c --version | cut -d' ' -f3");
  return machine;
}

}  // namespace bench
