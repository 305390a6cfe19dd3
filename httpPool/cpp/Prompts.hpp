#pragma once

// The library's questions to the host, and the host's answers: signing in (SignInObserver), texts for dialogs
// (LocalizationObserver), and whether to trust a server (TrustPanel). Part of httpPool.hpp.

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/ZEP_Foundation.h"
#include "httpPool/cpp/Exceptions.hpp"
#include "httpPool/cpp/Json.hpp"
#include "httpPool/cpp/Notifications.hpp"
#include "httpPool/cpp/Request.hpp"

namespace httpPool {
inline namespace v1 {

/// A server demands a user name and a password, by NTLM or Basic.
struct SignInQuestion {
  /// Of the request that asks.
  RequestKind kind = RequestKind::Any;
  /// A password that the library had kept was refused.
  bool wasRefused = false;
};

/// Texts in UTF-8. An empty name or password is as good as none: the request fails, as by Skip.
struct Credentials {
  /// A name; for NTLM a domain and a backslash may stand before it.
  std::string user{};
  /// ASCII only for NTLM.
  std::string password{};
  /// True: the host keeps the password itself; the library uses it for this request only. False: the library keeps it
  /// until the process ends, for the same server, port, realm and scheme, and does not ask again.
  bool remember = false;
};
/// Ends the request as Failed with ErrorId::NotAllowed.
struct Skip {};
/// The request waits, without a time limit, until answerSignIn() is called; it notices that within 10 seconds. Resetting
/// or destroying its task waits for the answer, too: so answer first.
struct Later {};
/// What a host answers to a SignInQuestion.
using SignInAnswer = std::variant<Skip, Later, Credentials>;

/// Answers every request that is waiting for credentials now. Any thread. What is not UTF-8 is answered by Skip.
inline void answerSignIn(const std::optional<Credentials>& credentials) {
  constexpr const char* kName = "HTTPAuthenticationDatasource";
  if (credentials) {
    const std::string info = JsonWriter()
                                 .text("Username", credentials->user)
                                 .text("Password", credentials->password)
                                 .flag("Remember", credentials->remember)
                                 .str();
    if (postNotification(kName, info)) {
      return;
    }
  }
  postNotification(kName);
}

/// Answers the library's demands for credentials while it lives. The handler is called on the thread of the request that
/// asks, several at the same time; an answer reaches every request that is waiting at that moment. When the handler
/// throws, the answer is Skip. For the destructor see NotificationObserver.
class SignInObserver {
 public:
  /// Begins to answer.
  explicit SignInObserver(std::function<SignInAnswer(const SignInQuestion&)> handler)
      : observer_("HTTPAuthenticationRequired",
                  [handler = std::move(handler)](const Notification& notification) {
                    answer(handler, notification);
                  }) {}

 private:
  static void answer(const std::function<SignInAnswer(const SignInQuestion&)>& handler,
                     const Notification& notification) {
    SignInAnswer answer = Skip{};
    detail::guarded([&] {
      const JsonObject members = notification.members();
      const auto kind = members.number("AuthRequiringType").value_or(0);
      const bool isNamed = kind >= 0 && kind <= static_cast<int>(RequestKind::Glint);
      answer = handler({.kind = isNamed ? static_cast<RequestKind>(kind) : RequestKind::Any,
                        .wasRefused = members.text("ShowWarningMsg") == "true"});
    });
    if (std::holds_alternative<Later>(answer)) {
      return;
    }
    const Credentials* const given = std::get_if<Credentials>(&answer);
    answerSignIn(given != nullptr ? std::optional(*given) : std::nullopt);
  }

  const NotificationObserver observer_;
};

/// Texts of the certificate panel; an empty one is the library's own.
struct PanelTexts {
  /// What is asked; the library puts the host's name in quotes behind it.
  std::string message{};
  /// What follows from it.
  std::string information{};
  /// Of the button that declines.
  std::string alternateButtonTitle{};
};

/// Answers the library's demands for texts of dialogs while it lives. The first texts that the library gets it keeps
/// until the process ends. Without texts it uses its own, and asks again the next time. One of these must live wherever
/// an untrusted server may be met: such a request waits for the answer.
class LocalizationObserver {
 public:
  /// Begins to answer, with these texts or with none.
  explicit LocalizationObserver(const std::optional<PanelTexts>& texts = std::nullopt)
      : observer_("HTTPLocalizationRequired", [info = infoOf(texts)](const Notification&) {
          if (!postNotification("HTTPLocalizationDatasource", info)) {
            postNotification("HTTPLocalizationDatasource");
          }
        }) {}

 private:
  static std::optional<std::string> infoOf(const std::optional<PanelTexts>& texts) {
    if (!texts) {
      return std::nullopt;
    }
    JsonWriter info;
    const auto add = [&](const char* key, const std::string& text) {
      if (!text.empty()) {
        info.text(key, text);
      }
    };
    add("CertificationMsg", texts->message);
    add("CertificationInfo", texts->information);
    add("CertificationAlternateButtonTitle", texts->alternateButtonTitle);
    return info.str();
  }

  const NotificationObserver observer_;
};

/// What a certificate panel is to show. The texts are to be shown as they are, never as markup: the host's name may be an
/// attacker's.
struct TrustQuestion {
  /// False: the certificate is shown, and the answer does not count.
  bool isQuestion = false;
  /// The server's name, as in the URL.
  std::string host{};
  /// What is asked, one sentence.
  std::string message{};
  /// What follows from it.
  std::string informativeText{};
  /// Of the button that declines.
  std::string alternateButtonTitle{};
  /// PEM texts (RFC 7468), the server's own first.
  std::vector<std::string> certificates{};

  /// Reads what a ZEP_TrustPanelRunner is given; members that are missing are empty.
  static TrustQuestion parse(const char* requestJson) {
    const JsonObject members = JsonObject::parse(requestJson).value_or(JsonObject());
    return {.isQuestion = members.text("panel") == "trust",
            .host = members.text("host").value_or(""),
            .message = members.text("message").value_or(""),
            .informativeText = members.text("informativeText").value_or(""),
            .alternateButtonTitle = members.text("alternateButtonTitle").value_or(""),
            .certificates = members.texts("certificates").value_or(std::vector<std::string>())};
  }
};

/// The host's own certificate panel in place of the built-in one, while it lives. Lives on the main thread, where the
/// handler is called, for one panel after another; it may turn the run loop. True: the user confirmed. When it throws,
/// he did not. The process has one panel: a second TrustPanel replaces the first, and after its end the built-in one is
/// back.
class TrustPanel {
 public:
  /// Sets the panel.
  explicit TrustPanel(std::function<bool(const TrustQuestion&)> handler)
      : handler_(std::make_shared<Handler>(Handler{std::move(handler), {}})) {
    handler_->self = handler_;
    current() = handler_.get();
    ZEP_TrustPanel_SetRunner(&TrustPanel::ask, handler_.get());
  }
  /// Restores the built-in panel, unless another TrustPanel has replaced this one.
  ~TrustPanel() {
    if (current() == handler_.get()) {
      current() = nullptr;
      ZEP_TrustPanel_SetRunner(nullptr, nullptr);
    }
  }
  /// Neither copied nor moved.
  TrustPanel(const TrustPanel&) = delete;
  TrustPanel& operator=(const TrustPanel&) = delete;

 private:
  struct Handler {
    std::function<bool(const TrustQuestion&)> function;
    std::weak_ptr<Handler> self;
  };

  static Handler*& current() {
    static Handler* handler = nullptr;
    return handler;
  }

  static int ask(const char* requestJson, void* context) {
    // The panel may be destroyed inside its own handler.
    const std::shared_ptr<Handler> handler = static_cast<Handler*>(context)->self.lock();
    bool isConfirmed = false;
    detail::guarded([&] { isConfirmed = handler->function(TrustQuestion::parse(requestJson)); });
    return isConfirmed ? 1 : 0;
  }

  const std::shared_ptr<Handler> handler_;
};

}  // namespace v1
}  // namespace httpPool
