#include "DemoOrigin.h"

#include <httplib.h>

#include <chrono>
#include <thread>

namespace httppool {
namespace {

void answer(httplib::Response& response, int status, const std::string& body) {
  response.status = status;
  response.set_content(body, "text/plain");
}

std::string sent(const httplib::Request& request, const char* name) {
  return std::string(name) + ": " +
         (request.has_header(name) ? request.get_header_value(name) : "(not sent)");
}

void serve(httplib::Server& server) {
  using httplib::Request;
  using httplib::Response;
  server.Get("/hello",
             [](const Request&, Response& response) { answer(response, 200, "Hello from the origin."); });
  server.Post("/echo", [](const Request& request, Response& response) {
    answer(response, 200, "received " + std::to_string(request.body.size()) + " bytes: " + request.body);
  });
  server.Get("/fields", [](const Request& request, Response& response) {
    answer(response, 200, sent(request, "X-Colour") + ", " + sent(request, "Adjacency"));
  });
  server.Get("/file", [](const Request&, Response& response) {
    response.set_content(DemoOrigin::file(), "application/octet-stream");
  });
  server.Get("/moved", [](const Request&, Response& response) { response.set_redirect("/hello", 302); });
  server.Get("/missing",
             [](const Request&, Response& response) { answer(response, 404, "There is no such page."); });
  server.Get("/broken", [](const Request&, Response& response) { answer(response, 500, "Out of order."); });
  server.Get("/busy", [](const Request&, Response& response) {
    response.set_header("Retry-After", "7");
    answer(response, 429, "Too many requests.");
  });
}

}  // namespace

struct DemoOrigin::Service {
  httplib::Server server;
  std::thread thread;
};

DemoOrigin::DemoOrigin() : service_(std::make_unique<Service>()) {
  httplib::Server& server = service_->server;
  serve(server);
  // An idle kept connection would hold up the stop until it times out.
  server.set_keep_alive_max_count(1);
  server.new_task_queue = [] { return new httplib::ThreadPool(2); };
  const int port = server.bind_to_any_port("127.0.0.1");
  if (port <= 0) {
    return;
  }
  port_ = port;
  service_->thread = std::thread([&server] { server.listen_after_bind(); });
}

DemoOrigin::~DemoOrigin() {
  if (!service_->thread.joinable()) {
    return;
  }
  // A server that is not listening yet would not notice the stop.
  while (!service_->server.is_running()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  service_->server.stop();
  service_->thread.join();
}

std::string DemoOrigin::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::string DemoOrigin::file() {
  std::string bytes(100'000, '\0');
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    bytes[index] = static_cast<char>(index % 251);
  }
  return bytes;
}

}  // namespace httppool
