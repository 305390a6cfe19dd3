#include "TrustPrompt.h"

#include <glib.h>
#include <json/reader.h>
#include <json/value.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <memory>
#include <mutex>
#include <system_error>
#include <utility>

#include "Interrupt.h"
#include "Terminal.h"
#include "TerminalText.h"
#include "foundation/ZEP_Foundation.h"

namespace httppool {
namespace {

constexpr int kConfirmed = 1;
constexpr int kNotConfirmed = 0;

int newTimer() {
  const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (timer < 0) {
    throw std::system_error(errno, std::generic_category(), "timerfd");
  }
  return timer;
}

// Setting a timer also takes back that it is readable from the last time.
void setTimer(int timer, std::optional<TrustPrompt::TimePoint> deadline) {
  itimerspec at{};
  if (deadline) {
    using std::chrono::nanoseconds;
    const auto time = std::chrono::duration_cast<nanoseconds>(deadline->time_since_epoch());
    const nanoseconds::rep count = std::max<nanoseconds::rep>(time.count(), 1);  // 0 would be no deadline
    at.it_value.tv_sec = count / 1'000'000'000;
    at.it_value.tv_nsec = count % 1'000'000'000;
  }
  timerfd_settime(timer, TFD_TIMER_ABSTIME, &at, nullptr);
}

}  // namespace

TrustPrompt::TrustPrompt(Trust trust, Deadline deadline)
    : trust_(trust),
      deadline_(std::move(deadline)),
      timer_(newTimer()),
      observer_(
          ZEP_Notification_AddObserver("HTTPLocalizationRequired", &TrustPrompt::textsRequired, nullptr)) {
  ZEP_TrustPanel_SetRunner(&TrustPrompt::panelRequired, this);
}

TrustPrompt::~TrustPrompt() {
  ZEP_TrustPanel_SetRunner(nullptr, nullptr);
  ZEP_Notification_RemoveObserver(observer_);
  ::close(timer_);
}

// This program has words of its own; without an answer the request would wait for ever.
void TrustPrompt::textsRequired(const char*, const void*, const char*, void*) {
  ZEP_Notification_Post("HTTPLocalizationDatasource", nullptr, nullptr);
}

int TrustPrompt::panelRequired(const char* request, void* context) {
  try {
    return static_cast<const TrustPrompt*>(context)->isTrusted(request) ? kConfirmed : kNotConfirmed;
  } catch (const std::exception&) {
    return kNotConfirmed;
  }
}

bool TrustPrompt::isTrusted(const std::string& request) const {
  Json::Value root;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(request.data(), request.data() + request.size(), &root, nullptr) || !root.isObject()) {
    return false;
  }
  const bool isForHost = root["panel"] == "trust";
  switch (trust_) {
    case Trust::No:
      return false;
    case Trust::OnFirstUse:
      return isForHost;
    case Trust::Ask:
      break;
  }
  const Json::Value& certificates = root["certificates"];
  const bool hasLeaf = certificates.isArray() && !certificates.empty() && certificates[0].isString();
  return ask(root["host"].asString(), fingerprint(hasLeaf ? certificates[0].asString() : std::string()),
             isForHost);
}

bool TrustPrompt::ask(const std::string& host, const std::string& fingerprint, bool isForHost) const {
  if (caughtInterrupt() != 0) {
    return false;
  }
  const std::lock_guard turn(Terminal::turn());
  setTimer(timer_, deadline_());
  Terminal terminal(timer_);
  if (!terminal.isUsable()) {
    return false;
  }
  const std::string about = oneLine(host) + "\n  SHA-256 fingerprint " + fingerprint + "\n";
  if (!isForHost) {
    terminal.show("Refused: the certificate is not made out to " + about);
    return false;
  }
  if (!terminal.show("The certificate cannot be verified of " + about)) {
    return false;
  }
  return terminal.askYesOrNo("Trust this host for the rest of this run? [y/N] ").value_or(false);
}

std::string fingerprint(const std::string& pem) {
  constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
  const std::size_t begin = pem.find(kBegin);
  const std::size_t end = pem.find("-----END", begin == std::string::npos ? begin : begin + kBegin.size());
  if (begin == std::string::npos || end == std::string::npos) {
    return {};
  }
  const std::string encoded = pem.substr(begin + kBegin.size(), end - begin - kBegin.size());
  gsize length = 0;
  const std::unique_ptr<guchar, void (*)(void*)> bytes(g_base64_decode(encoded.c_str(), &length), &g_free);
  const std::unique_ptr<gchar, void (*)(void*)> digest(
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, bytes.get(), length), &g_free);
  std::string text;
  for (const gchar* digit = digest.get(); *digit != '\0'; ++digit) {
    if (text.size() % 3 == 2) {
      text.push_back(':');
    }
    text.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(*digit))));
  }
  return text;
}

}  // namespace httppool
