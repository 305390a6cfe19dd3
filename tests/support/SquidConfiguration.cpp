#include "tests/support/SquidConfiguration.h"

#include "tests/support/Template.h"

namespace test {
namespace {

// The scheme is noted by a rule that never applies as a whole: it is there for its side effect.
constexpr const char* kMain = R"(
http_port 127.0.0.1:@PORT@ @PORTMODE@
@TLSPORT@
visible_hostname @NAME@
pid_filename none
coredump_dir @FOLDER@
cache_log @FOLDER@/cache.log
netdb_filename none
pinger_enable off
icp_port 0
cache deny all
memory_cache_shared off
strip_query_terms off
shutdown_lifetime 0 seconds
client_idle_pconn_timeout 600 seconds
logformat fields %>p %rm %>Hs %>st %un %note{scheme} %ru
access_log stdio:@FOLDER@/access.log fields
@PEER@
@AUTHENTICATION@
acl mark urlpath_regex ^/fixture-mark
http_access deny mark
acl sent_basic req_header @HEADER@ -i ^Basic
acl sent_ntlm req_header @HEADER@ -i ^NTLM
acl note_basic annotate_transaction scheme=Basic
acl note_ntlm annotate_transaction scheme=NTLM
http_access deny sent_basic note_basic !all
http_access deny sent_ntlm note_ntlm !all
@ACCESS@
http_access deny all
)";

constexpr const char* kTlsPort =
    "https_port 127.0.0.1:@TLSPORT@ tls-cert=@FOLDER@/chain.pem tls-key=@FOLDER@/key.pem";

constexpr const char* kPeer =
    "cache_peer 127.0.0.1 parent @ORIGIN@ 0 no-query no-digest no-netdb-exchange originserver";

// Kept open, a connection with a refused request's body on it would never be read again: only the first answer of
// an exchange, which offers the schemes, closes it.
constexpr const char* kNtlm = R"(
auth_param ntlm program /usr/bin/ntlm_auth --configfile=@FOLDER@/smb.conf --helper-protocol=squid-2.5-ntlmssp --username=@NTLMUSER@ --domain=@DOMAIN@ --password=@NTLMPASSWORD@
auth_param ntlm children 8 startup=1 idle=1
auth_param ntlm keep_alive off
)";

constexpr const char* kBasic = R"(
auth_param basic program /usr/lib/squid/basic_ncsa_auth @FOLDER@/basic.users
auth_param basic children 2 startup=1 idle=1
auth_param basic realm @REALM@
)";

constexpr const char* kSamba = R"([global]
workgroup = @DOMAIN@
netbios name = POOLTEST
ntlm auth = ntlmv2-only
private dir = @FOLDER@/samba
state directory = @FOLDER@/samba
cache directory = @FOLDER@/samba
lock directory = @FOLDER@/samba
pid directory = @FOLDER@/samba
ncalrpc dir = @FOLDER@/samba
log file = @FOLDER@/samba.log
)";

std::string authentication(SquidServer::Mode mode) {
  switch (mode) {
    case SquidServer::Mode::ReverseNtlm:
      return std::string(kNtlm) + kBasic;
    case SquidServer::Mode::ForwardBasic:
      return kBasic;
    case SquidServer::Mode::ForwardNtlm:
      return kNtlm;
    case SquidServer::Mode::ForwardOpen:
      break;
  }
  return "";
}

}  // namespace

std::string squidConfiguration(const SquidConfigurationInput& input) {
  const SquidServer::Mode mode = input.options.mode;
  const bool reverse = mode == SquidServer::Mode::ReverseNtlm;
  const bool open = mode == SquidServer::Mode::ForwardOpen;
  const bool hasTls = input.options.certificate.has_value();
  return filledIn(
      kMain,
      {{"TLSPORT",
        hasTls ? filledIn(kTlsPort, {{"TLSPORT", std::to_string(input.tlsPort)}, {"FOLDER", input.folder}})
               : ""},
       {"PORTMODE", reverse ? "accel defaultsite=localhost no-vhost" : ""},
       {"PEER", reverse ? kPeer : ""},
       {"HEADER", reverse ? "Authorization" : "Proxy-Authorization"},
       {"AUTHENTICATION", authentication(mode)},
       {"ACCESS", open ? "http_access allow all" : "acl known proxy_auth REQUIRED\nhttp_access allow known"},
       {"REALM", reverse ? SquidServer::kReverseRealm : SquidServer::kForwardRealm},
       {"NTLMUSER", SquidServer::kNtlm.name},
       {"NTLMPASSWORD", SquidServer::kNtlm.password},
       {"DOMAIN", SquidServer::kDomain},
       {"NAME", input.name},
       {"PORT", std::to_string(input.port)},
       {"ORIGIN", std::to_string(input.options.originPort)},
       {"FOLDER", input.folder}});
}

std::string sambaConfiguration(const std::string& folder) {
  return filledIn(kSamba, {{"DOMAIN", SquidServer::kDomain}, {"FOLDER", folder}});
}

}  // namespace test
