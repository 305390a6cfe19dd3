#include "tests/lifetime/Stations.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gio/gio.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "foundation/ZEP_Foundation.h"
#include "tests/support/Files.h"
#include "tests/support/RawServer.h"

namespace test {
namespace {

constexpr const char* kHeldName = "held.test";
constexpr const char* kProxiedName = "proxied.test";
constexpr const char* kTunnelledName = "tunnelled.test";
/// Behind a place: its connections that have ended.
constexpr const char* kLeft = " left";
/// So many workers serve files and proxy questions.
constexpr int kWorkers = 8;
/// Fewer transfers side by side there never are.
constexpr int kSlots = 4;

/// Who waits where, and who has waited. Never destroyed: its threads may outlive the program's static objects.
class Holds {
 public:
  void wait(const std::string& place) {
    std::unique_lock lock(mutex_);
    ++arrived_[place];
    changed_.wait(lock, [&] { return isReleased_; });
  }
  void note(const std::string& place) {
    const std::lock_guard lock(mutex_);
    ++arrived_[place];
  }
  void release() {
    const std::lock_guard lock(mutex_);
    isReleased_ = true;
    changed_.notify_all();
  }
  int arrived(const std::string& place) {
    const std::lock_guard lock(mutex_);
    return arrived_[place];
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, int> arrived_;
  bool isReleased_ = false;
};

Holds& holds() {
  static Holds* const all = new Holds;
  return *all;
}

/// Of the file whose reading is held up; 0: there is none.
std::atomic<ino_t> heldFile = 0;
std::atomic<bool> textsAreHeld = false;
std::atomic<bool> areUploadsHeld = false;

// --- Servers. ---

/// Sends a byte at a time until the peer is gone.
void dribble(RawServer::Connection& connection) {
  while (connection.send("x")) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

/// The path of a request, without its slash.
std::string placeOf(const std::string& request) {
  if (request.starts_with("CONNECT ")) {
    return "tunnel";
  }
  std::string method;
  std::string path;
  std::istringstream(request) >> method >> path;
  return path.empty() ? path : path.substr(1);
}

/// Answers a request; false when the connection stays as it is then.
bool answer(RawServer::Connection& connection, const std::string& place) {
  if (place == "done" || place == "over") {
    return connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ndone");
  }
  if (place == "failed") {
    return connection.send("HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n");
  }
  if (place == "prompt" || place == "draining") {
    connection.send("HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"r\"\r\nContent-Length: " +
                    std::string(place == "prompt" ? "0" : "60000") + "\r\n\r\n");
  } else if (place == "body") {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nhalf");
  } else if (place == "receiving") {
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
  } else if (place == "redirect") {
    connection.send("HTTP/1.1 302 Found\r\nLocation: /redirected\r\nContent-Length: 60000\r\n\r\n");
  }
  if (place == "receiving" || place == "draining" || place == "redirect") {
    dribble(connection);
  }
  return place == "prompt";
}

void serve(RawServer::Connection& connection) {
  std::string place;
  do {
    place = placeOf(connection.readRequest());
    // Who is asked for a password is counted when the host is.
    if (place != "prompt" && place != "draining") {
      holds().note(place);
    }
  } while (answer(connection, place));
  if (place == "upload") {
    holds().wait("reading");
  }
  connection.readToEnd();
  holds().note(place + kLeft);
}

RawServer& server() {
  static RawServer* const one = new RawServer(&serve);
  return *one;
}

/// Knows no TLS.
RawServer& silentServer() {
  static RawServer* const one = new RawServer([](RawServer::Connection& connection) {
    connection.readSome();
    holds().note("handshake");
    connection.readToEnd();
    holds().note(std::string("handshake") + kLeft);
  });
  return *one;
}

// --- The limit of descriptors, by which the loader reckons how many transfers it may have. ---

/// What it is otherwise.
rlim_t usualDescriptors = 0;

/// Has to come before the first request of the process.
void limitDescriptors() {
  if (usualDescriptors != 0) {
    return;
  }
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  usualDescriptors = limit.rlim_cur;
  constexpr rlim_t kForThisProgram = 40;
  limit.rlim_cur = kForThisProgram;
  setrlimit(RLIMIT_NOFILE, &limit);
}

void restoreDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::exchange(usualDescriptors, 0);
  setrlimit(RLIMIT_NOFILE, &limit);
}

bool isConnecting(int socket) {
  tcp_info info{};
  socklen_t length = sizeof(info);
  return getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &length) == 0 && info.tcpi_state == TCP_SYN_SENT;
}

/// A port of this machine that answers no attempt to connect: its queue is full.
int fullPort() {
  static const int port = [] {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, any, length) != 0 || listen(listener, 0) != 0 ||
        getsockname(listener, any, &length) != 0) {
      throw std::runtime_error("cannot listen");
    }
    // On the loopback interface the answer, if there is one, has come when connect(2) returns.
    constexpr int kMoreThanItTakes = 10;
    for (int i = 0; i < kMoreThanItTakes; ++i) {
      const int filler = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
      [[maybe_unused]] const int inProgress = connect(filler, any, length);
      if (isConnecting(filler)) {
        close(filler);
        return static_cast<int>(ntohs(address.sin_port));
      }
    }
    throw std::runtime_error("cannot fill a queue of connections");
  }();
  return port;
}

/// Sockets of this machine that try to reach that port.
int connectingTo(int port) {
  std::ifstream table("/proc/self/net/tcp");
  std::string line;
  int count = 0;
  while (std::getline(table, line)) {
    std::string number;
    std::string local;
    std::string remote;
    std::string state;
    std::istringstream(line) >> number >> local >> remote >> state;
    const std::size_t colon = remote.find(':');
    if (state == "02" && colon != std::string::npos &&
        std::stoi(remote.substr(colon + 1), nullptr, 16) == port) {
      ++count;
    }
  }
  return count;
}

// --- The desktop's proxy settings. ---

struct HeldResolver {
  GObject object;
};
struct HeldResolverClass {
  GObjectClass object;
};

gchar** lookUpProxy(GProxyResolver*, const gchar* uri, GCancellable*, GError**) {
  if (std::string_view(uri).find(kProxiedName) != std::string_view::npos) {
    holds().wait("proxy");
  }
  const bool isTunnelled = std::string_view(uri).find(kTunnelledName) != std::string_view::npos;
  const std::string proxy = isTunnelled ? server().url("") : "direct://";
  const char* const answer[] = {proxy.c_str(), nullptr};
  return g_strdupv(const_cast<gchar**>(answer));
}

void beProxyResolver(gpointer interface, gpointer) {
  auto& resolver = *static_cast<GProxyResolverInterface*>(interface);
  resolver.is_supported = [](GProxyResolver*) -> gboolean { return TRUE; };
  resolver.lookup = &lookUpProxy;
}

/// Has to come before the first request of the process.
void replaceProxyResolver() {
  const GTypeInfo type = {.class_size = sizeof(HeldResolverClass),
                          .base_init = nullptr,
                          .base_finalize = nullptr,
                          .class_init = nullptr,
                          .class_finalize = nullptr,
                          .class_data = nullptr,
                          .instance_size = sizeof(HeldResolver),
                          .n_preallocs = 0,
                          .instance_init = nullptr,
                          .value_table = nullptr};
  const GInterfaceInfo interface = {
      .interface_init = &beProxyResolver, .interface_finalize = nullptr, .interface_data = nullptr};
  const GType held = g_type_register_static(G_TYPE_OBJECT, "TestHeldResolver", &type, GTypeFlags{});
  g_type_add_interface_static(held, G_TYPE_PROXY_RESOLVER, &interface);
  g_io_extension_point_register(G_PROXY_RESOLVER_EXTENSION_POINT_NAME);
  g_io_extension_point_implement(G_PROXY_RESOLVER_EXTENSION_POINT_NAME, held, "held", 1000);
  setenv("GIO_USE_PROXY_RESOLVER", "held", 1);
}

// --- The host. ---

void askedForPassword(const char*, const void*, const char*, void*) {
  holds().wait("prompt");
  ZEP_Notification_Post("HTTPAuthenticationDatasource", nullptr, nullptr);
}

void askedForTexts(const char*, const void*, const char*, void*) {
  if (textsAreHeld) {
    holds().wait("texts");
  }
  ZEP_Notification_Post("HTTPLocalizationDatasource", nullptr, nullptr);
}

}  // namespace

const std::vector<std::string>& Stations::names() {
  static const std::vector<std::string> all = {
      "connecting", "texts", "head",  "body",   "receiving", "redirect", "prompt", "draining",
      "look-up",    "file",  "proxy", "tunnel", "handshake", "upload",   "slot",   "over"};
  return all;
}

Stations::Stations(const std::string& untrusted, const std::string& folder)
    : untrusted_(untrusted), file_(folder + "/held") {
  replaceProxyResolver();
  writeFile(file_, "held");
  struct stat status {};
  stat(file_.c_str(), &status);
  heldFile = status.st_ino;
  ZEP_Notification_AddObserver("HTTPAuthenticationRequired", &askedForPassword, nullptr);
  ZEP_Notification_AddObserver("HTTPLocalizationRequired", &askedForTexts, nullptr);
}

std::string Stations::url(const std::string& station) const {
  if (station == "connecting") {
    return "http://127.0.0.1:" + std::to_string(fullPort()) + "/";
  }
  if (station == "texts" || station == "panel") {
    textsAreHeld = station == "texts";
    return untrusted_;
  }
  if (station == "look-up") {
    return std::string("http://") + kHeldName + "/";
  }
  if (station == "file") {
    return "file://" + file_;
  }
  if (station == "proxy") {
    // An origin is asked about once, however many requests go there.
    static std::atomic<int> origins = 0;
    return "http://" + std::to_string(++origins) + "." + kProxiedName + "/";
  }
  if (station == "tunnel") {
    return std::string("https://") + kTunnelledName + "/";
  }
  if (station == "handshake") {
    return "https://127.0.0.1:" + std::to_string(silentServer().port()) + "/";
  }
  if (station == "slot") {
    limitDescriptors();
  }
  if (station == "upload") {
    server();
    areUploadsHeld = true;
  }
  return server().url("/" + station);
}

const std::vector<unsigned char>& Stations::body(const std::string& station) {
  static const std::vector<unsigned char> none;
  // More than the sockets of both sides hold, see socket() below.
  static const std::vector<unsigned char> large(1'500'000, 'u');
  return station == "upload" ? large : none;
}

int Stations::most(const std::string& station, int requests) {
  if (station == "slot") {
    return std::min(requests, kSlots);
  }
  return station == "file" || station == "proxy" ? std::min(requests, kWorkers) : requests;
}

bool Stations::waitsForTheHost(const std::string& station) {
  return station == "prompt" || station == "draining" || station == "texts";
}

int Stations::standing(const std::string& station) const {
  if (station == "connecting") {
    return connectingTo(fullPort());
  }
  const int arrived = holds().arrived(station == "draining" ? "prompt" : station);
  if (station == "slot" && arrived > 0 && usualDescriptors != 0) {
    restoreDescriptors();
  }
  return arrived;
}

int Stations::left(const std::string& station) const {
  return holds().arrived(station + kLeft);
}

void Stations::release() {
  holds().release();
}

}  // namespace test

// --- Functions of the C library, in front of it. ---

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service,
                                                                  const addrinfo* hints, addrinfo** found) {
  const std::string_view name = node != nullptr ? node : "";
  if (name == test::kHeldName) {
    test::holds().wait("look-up");
    return EAI_NONAME;
  }
  if (name.ends_with(test::kProxiedName)) {
    return EAI_NONAME;
  }
  static const auto original = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return original(node, service, hints, found);
}

extern "C" __attribute__((visibility("default"))) ssize_t read(int descriptor, void* bytes, size_t most) {
  static const auto original = reinterpret_cast<decltype(&read)>(dlsym(RTLD_NEXT, "read"));
  struct stat status {};
  if (test::heldFile != 0 && fstat(descriptor, &status) == 0 && status.st_ino == test::heldFile) {
    test::holds().wait("file");
  }
  return original(descriptor, bytes, most);
}

/// A socket takes megabytes that its peer does not read, unless its buffer is set.
extern "C" __attribute__((visibility("default"))) int socket(int family, int type, int protocol) {
  static const auto original = reinterpret_cast<decltype(&socket)>(dlsym(RTLD_NEXT, "socket"));
  const int descriptor = original(family, type, protocol);
  if (test::areUploadsHeld && descriptor >= 0) {
    const int bytes = 16384;
    setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof(bytes));
  }
  return descriptor;
}
