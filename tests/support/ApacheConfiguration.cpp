#include "tests/support/ApacheConfiguration.h"

#include <sstream>
#include <stdexcept>

#include "tests/support/ApacheServer.h"
#include "tests/support/Files.h"
#include "tests/support/Template.h"

namespace test {
namespace {

constexpr const char* kModulesFolder = "/usr/lib/apache2/modules";
constexpr const char* kModules[] = {
    "mpm_worker",  "authn_core",  "authn_file", "authz_core", "authz_user", "auth_basic",
    "auth_digest", "auth_gssapi", "headers",    "lua",        "setenvif",   "status",
};

// The worker module keeps a connection on its thread to the end, so that the status page tells for each whether
// its request is logged yet. The log's line has nothing of the credentials but the scheme and the length.
constexpr const char* kMain = R"(
ServerRoot @FOLDER@
ServerName 127.0.0.1
Listen 127.0.0.1:@PORT@
DefaultRuntimeDir @FOLDER@/run
PidFile @FOLDER@/run/httpd.pid
Mutex file:@FOLDER@/run default
DocumentRoot @FOLDER@/none
ErrorLog @FOLDER@/error.log
LogLevel info
LogFormat "%{remote}p\t%{number}n\t%>s\t%I\t%{Content-Length}i\t%{scheme}n\t%{length}n\t%u\t%r" fields
CustomLog @FOLDER@/access.log fields env=!fixture
ServerTokens Prod
Timeout 60
KeepAlive On
KeepAliveTimeout 30
MaxKeepAliveRequests 0
ServerLimit 1
StartServers 1
ThreadLimit 128
ThreadsPerChild 128
MaxRequestWorkers 128
MinSpareThreads 1
MaxSpareThreads 128
ExtendedStatus On
LuaScope conn
LuaHookTranslateName @FOLDER@/answers.lua note_request early
LuaMapHandler "^/several/echo$" @FOLDER@/answers.lua several
LuaMapHandler "^/bearer/echo$" @FOLDER@/answers.lua bearer
LuaMapHandler "^/negotiate/echo$" @FOLDER@/answers.lua negotiate
LuaMapHandler "^/[^/]+/echo$" @FOLDER@/answers.lua echo
LuaMapHandler "^/basic/redirect(-here)?$" @FOLDER@/answers.lua redirect
LuaMapHandler "^/fixture/alive$" @FOLDER@/answers.lua alive
SetEnvIf Request_URI "^/fixture/" fixture
<Location "/fixture/status">
  SetHandler server-status
</Location>
)";

constexpr const char* kLocations = R"(
<Location "/basic/">
  AuthType Basic
  AuthName "Basic realm"
  AuthBasicProvider file
  AuthUserFile @FOLDER@/basic.users
  Require valid-user
</Location>
<Location "/basic-utf8/">
  AuthType Basic
  AuthName "UTF-8 realm"
  AuthBasicProvider file
  AuthUserFile @FOLDER@/utf8.users
  Require valid-user
</Location>
<Location "/basic-second/">
  AuthType Basic
  AuthName "Second realm"
  AuthBasicProvider file
  AuthUserFile @FOLDER@/second.users
  Require valid-user
</Location>
<Location "/digest/">
  AuthType Digest
  AuthName "Digest realm"
  AuthDigestProvider file
  AuthUserFile @FOLDER@/digest.users
  Require valid-user
</Location>
<LocationMatch "^/(ntlm|negotiate-ntlm|ntlm-basic)/">
  AuthType GSSAPI
  AuthName "NTLM"
  GssapiAllowedMech ntlmssp
  GssapiConnectionBound On
  Require valid-user
</LocationMatch>
)";

// Without Negotiate the module offers nothing at all on its own: the offers are put in here, but for the answer to
// an NTLM client's first message, which has the module's token and nothing else. The module's own Basic crashes the
// server, so requests with Basic are turned over to another module, which makes its own offer of Basic.
constexpr const char* kOffers = R"(
SetEnvIf Request_URI "^/(ntlm|ntlm-basic)/" gssapi-no-negotiate
<LocationMatch "^/(ntlm|ntlm-basic)/">
  Header always set WWW-Authenticate NTLM "expr=%{REQUEST_STATUS} -eq 401 && ! %{HTTP:Authorization} =~ /^NTLM TlRMTVNTUAAB/"
</LocationMatch>
<Location "/ntlm-basic/">
  Header always add WWW-Authenticate "Basic realm=\"NTLM and Basic\"" "expr=%{REQUEST_STATUS} -eq 401 && ! %{HTTP:Authorization} =~ /^(NTLM TlRMTVNTUAAB|Basic )/"
  <If "%{HTTP:Authorization} =~ /^Basic /">
    AuthType Basic
    AuthName "NTLM and Basic"
    AuthBasicProvider file
    AuthUserFile @FOLDER@/ntlm-basic.users
    Require valid-user
  </If>
</Location>
)";

// A hook that runs before authentication, and the handlers. Globals last as long as the connection.
constexpr const char* kScript = R"(
number = 0

function note_request(r)
  number = number + 1
  r.notes["number"] = tostring(number)
  local received = r.headers_in["Authorization"]
  if received then
    r.notes["authorization"] = received
    r.notes["scheme"] = received:match("^%S+")
    r.notes["length"] = tostring(#received)
    -- gss-ntlmssp refuses a first message that ends before the empty names, as some clients send it: the same
    -- message with them.
    if received == "NTLM TlRMTVNTUAABAAAABoIIAAAAAAAAAAAAAAAAAAAAAAA=" then
      r.headers_in["Authorization"] = "NTLM TlRMTVNTUAABAAAABgIIAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=="
    end
  end
  return apache2.DECLINED
end

function echo(r)
  if r.headers_in["Transfer-Encoding"] then
    return 411
  end
  local fields = {}
  for name, value in pairs(r:headers_in_table()) do
    if name:lower() == "authorization" then
      value = r.notes["authorization"]
    end
    fields[#fields + 1] = name .. ": " .. value .. "\r\n"
  end
  table.sort(fields)
  local head = r.the_request .. "\r\n" .. table.concat(fields) .. "\r\n"
  local body = r:requestbody() or ""
  r.content_type = "text/plain"
  r:puts(r:base64_encode(head), "\n", r:base64_encode(body), "\n")
  return apache2.OK
end

local function refused(r, offer)
  r.err_headers_out["WWW-Authenticate"] = offer
  return 401
end

function several(r)
  if r.headers_in["Authorization"] == "Basic " .. r:base64_encode("@BASICUSER@:@BASICPASSWORD@") then
    r.user = "@BASICUSER@"
    return echo(r)
  end
  return refused(r, 'Digest realm="a, b", nonce="n", Basic realm="one, \\"two\\""')
end

function bearer(r)
  return refused(r, 'Bearer realm="x"')
end

function negotiate(r)
  return refused(r, "Negotiate")
end

function redirect(r)
  r.headers_out["Location"] = r:parseargs()["to"] or "/basic/echo"
  return 302
end

function alive(r)
  r.content_type = "text/plain"
  r:puts("@FOLDER@")
  return apache2.OK
end
)";

std::string moduleLines() {
  std::ostringstream lines;
  for (const std::string name : kModules) {
    const std::string file = std::string(kModulesFolder) + "/mod_" + name + ".so";
    if (!fileExists(file)) {
      throw std::runtime_error("not installed: " + file);
    }
    lines << "LoadModule " << name << "_module " << file << "\n";
  }
  return lines.str();
}

}  // namespace

std::string apacheConfiguration(const ApacheConfigurationInput& input) {
  return filledIn(moduleLines() + kMain + kLocations + kOffers + input.extraConfiguration,
                  {{"FOLDER", input.folder}, {"PORT", std::to_string(input.port)}});
}

std::string apacheScript(const ApacheConfigurationInput& input) {
  return filledIn(kScript, {{"FOLDER", input.folder},
                            {"BASICUSER", ApacheServer::kBasic.name},
                            {"BASICPASSWORD", ApacheServer::kBasic.password}});
}

}  // namespace test
