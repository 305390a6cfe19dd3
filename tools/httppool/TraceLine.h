// What a trace line of the library says: its kind, and the values in it. Any thread; values only, views into the
// text they were read from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace httppool {

struct TraceLine {
  enum class Kind {
    Entry,            // name: an exported function
    Exit,             // name
    Refusal,          // name: the URL; number 0: it was given none
    Launch,           // name: the URL. The downloader's thread is about to start
    Call,             // session, downloader: the launch that went before on this thread
    ThreadStart,      // downloader: whose thread this is
    StopIdentity,     // downloader: the stop that follows on this thread
    Stop,             // name: the URL; number: its state
    Release,          // name: the URL
    State,            // number: the downloader's new state
    ErrorCode,        // number
    Response,         // number: the HTTP status
    Redirect,         // number: the HTTP status; name: the host
    TrackingId,       // name
    Loaded,           // number: the HTTP status
    LoadFailed,       // name: the URL
    FailureReason,    // name
    Challenge,        // name: the host
    AsksForPassword,  // by NTLM or Basic
    AnsweredByStore,  // with a credential that was stored
    StoredRefused,    // a stored credential was refused, and removed
    StoredUseless,    // stored credentials were of no use, and removed
    HostIsAsked,      // for a user name and a password
    HostHasAnswered,
    HostsAnswer,  // is about to be used
    Skipped,
    AnswerIsEmpty,  // and the challenge is cancelled
    ServerUntrusted,
    ProxyRefused,
    ProxyRefusedEnd,
    UserName,
    Retry,
    RetriesEnded,
    EngineState,   // number
    CallState,     // session, number
    TaskNotified,  // session: its low 32 bits; number
    Result,        // session
    Other
  };

  Kind kind = Kind::Other;
  std::string_view name;
  int number = 0;
  std::int64_t session = 0;
  std::uint64_t downloader = 0;
};

TraceLine readTraceLine(std::string_view text);

}  // namespace httppool
