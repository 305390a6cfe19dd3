// libsoup 3: one session, its limits of connections raised, bodies read whole by its asynchronous interface.

#include <libsoup/soup.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/compare/Contender.h"
#include "bench/compare/Recorder.h"

namespace {

struct Unreference {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename Object>
using Reference = std::unique_ptr<Object, Unreference>;

class Client;

struct Slot {
  Client* client = nullptr;
  int number = 0;
};

class Client {
 public:
  explicit Client(const bench::Assignment& assignment);
  ~Client() { g_main_loop_unref(loop_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bench::Figures run();

 private:
  static void onBody(GObject* session, GAsyncResult* result, gpointer slot);
  static void onHead(GObject* session, GAsyncResult* result, gpointer slot);
  static void onPiece(GObject* stream, GAsyncResult* result, gpointer slot);

  void begin(Slot& slot);
  void readPiece(Slot& slot);
  void ended(Slot& slot, long bytes, bool good);

  const bench::Assignment& assignment_;
  bench::Recorder recorder_;
  GMainLoop* loop_ = g_main_loop_new(nullptr, FALSE);
  Reference<GTlsDatabase> trusted_;
  Reference<SoupSession> session_;
  Reference<SoupMessage> message_;
  Reference<GInputStream> body_;
  Reference<GFileOutputStream> file_;
  std::vector<char> piece_;
  long written_ = 0;
  std::vector<Slot> slots_;
};

Client::Client(const bench::Assignment& assignment)
    : assignment_(assignment),
      recorder_(assignment.work.inFlight, assignment.seconds),
      trusted_(g_tls_file_database_new(assignment.authorityFile.c_str(), nullptr)),
      piece_(512UL * 1024),
      slots_(static_cast<std::size_t>(assignment.work.inFlight)) {
  session_.reset(soup_session_new_with_options("max-conns", assignment.work.inFlight, "max-conns-per-host",
                                               assignment.work.inFlight, "tls-database", trusted_.get(),
                                               nullptr));
  for (std::size_t number = 0; number < slots_.size(); ++number) {
    slots_[number] = {.client = this, .number = static_cast<int>(number)};
  }
}

void Client::begin(Slot& slot) {
  recorder_.begin(slot.number);
  message_.reset(soup_message_new(SOUP_METHOD_GET, assignment_.url.c_str()));
  if (assignment_.work.kind == bench::Kind::Download) {
    soup_session_send_async(session_.get(), message_.get(), G_PRIORITY_DEFAULT, nullptr, &Client::onHead,
                            &slot);
  } else {
    soup_session_send_and_read_async(session_.get(), message_.get(), G_PRIORITY_DEFAULT, nullptr,
                                     &Client::onBody, &slot);
  }
}

void Client::onBody(GObject* session, GAsyncResult* result, gpointer data) {
  auto* slot = static_cast<Slot*>(data);
  SoupMessage* message = soup_session_get_async_result_message(SOUP_SESSION(session), result);
  const bool isOk = soup_message_get_status(message) == SOUP_STATUS_OK;
  GBytes* body = soup_session_send_and_read_finish(SOUP_SESSION(session), result, nullptr);
  const long bytes = body == nullptr ? -1 : static_cast<long>(g_bytes_get_size(body));
  if (body != nullptr) {
    g_bytes_unref(body);
  }
  slot->client->ended(*slot, bytes, isOk && bytes == slot->client->assignment_.bodyBytes);
}

void Client::onHead(GObject* session, GAsyncResult* result, gpointer data) {
  auto* slot = static_cast<Slot*>(data);
  Client* self = slot->client;
  self->body_.reset(soup_session_send_finish(SOUP_SESSION(session), result, nullptr));
  const Reference<GFile> target(g_file_new_for_path(self->assignment_.downloadFile().c_str()));
  self->file_.reset(g_file_replace(target.get(), nullptr, FALSE, G_FILE_CREATE_NONE, nullptr, nullptr));
  if (!self->body_ || !self->file_) {
    self->ended(*slot, 0, false);
    return;
  }
  self->readPiece(*slot);
}

void Client::readPiece(Slot& slot) {
  g_input_stream_read_async(body_.get(), piece_.data(), piece_.size(), G_PRIORITY_DEFAULT, nullptr,
                            &Client::onPiece, &slot);
}

void Client::onPiece(GObject* stream, GAsyncResult* result, gpointer data) {
  auto* slot = static_cast<Slot*>(data);
  Client* self = slot->client;
  const gssize count = g_input_stream_read_finish(G_INPUT_STREAM(stream), result, nullptr);
  if (count > 0 && g_output_stream_write_all(G_OUTPUT_STREAM(self->file_.get()), self->piece_.data(),
                                             static_cast<gsize>(count), nullptr, nullptr, nullptr) != FALSE) {
    self->written_ += count;
    self->readPiece(*slot);
    return;
  }
  g_output_stream_close(G_OUTPUT_STREAM(self->file_.get()), nullptr, nullptr);
  self->ended(*slot, self->written_,
              bench::hasSize(self->assignment_.downloadFile(), self->assignment_.bodyBytes));
}

void Client::ended(Slot& slot, long bytes, bool good) {
  if (recorder_.end(slot.number, bytes, good)) {
    begin(slot);
  } else if (recorder_.isDone()) {
    g_main_loop_quit(loop_);
  }
}

bench::Figures Client::run() {
  for (Slot& slot : slots_) {
    begin(slot);
  }
  g_main_loop_run(loop_);
  return recorder_.figures();
}

bench::Figures runSoup(const bench::Assignment& assignment) {
  return Client(assignment).run();
}

}  // namespace

int main(int count, char** words) {
  return bench::contenderMain(count, words, runSoup);
}
