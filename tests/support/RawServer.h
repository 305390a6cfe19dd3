#pragma once

// A server on a port of its own that does with each connection what a test says, for answers no real server
// gives. A thread accepts, and one thread for each connection runs the script. The destructor cuts all
// connections and joins the threads.
//
//   RawServer server(RawServer::answering("this is not HTTP\r\n\r\n"));
//   RawServer server([](RawServer::Connection& connection) { connection.readRequest(); connection.reset();
//   });

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace test {

class RawServer {
 public:
  class Connection {
   public:
    explicit Connection(int socket) : socket_(socket) {}
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Reads up to the end of a header block and returns it; what came behind it is kept for the next read.
    /// Returns what there is when the peer ends the connection first.
    std::string readRequest();
    /// Reads until so many bytes are there; fewer when the peer ends the connection first.
    std::string read(std::size_t bytes);
    /// Some bytes; none when the peer ends the connection.
    std::string readSome();
    /// Waits until the peer ends the connection.
    void readToEnd();
    /// False when the peer is gone.
    bool send(const std::string& text);
    /// Ends the connection before its script does.
    void close();
    /// Ends the connection with a reset instead of a regular end.
    void reset();

   private:
    friend class RawServer;
    bool fill();

    int socket_;
    std::string pending_;
  };

  using Script = std::function<void(Connection&)>;

  /// The connection is closed when its script returns.
  explicit RawServer(Script script);
  ~RawServer();
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  /// Reads a header block, sends the text and closes.
  static Script answering(std::string text);

  int port() const { return port_; }
  std::string url(const std::string& target) const;
  /// Connections accepted so far.
  int connections() const { return accepted_; }

 private:
  struct Served {
    explicit Served(int socket) : connection(socket) {}
    Connection connection;
    std::thread thread;
  };

  void acceptAll();

  Script script_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<int> accepted_{0};
  std::mutex mutex_;
  std::list<Served> served_;  ///< under mutex_
  std::thread acceptor_;
};

}  // namespace test
