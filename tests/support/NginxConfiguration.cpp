#include "tests/support/NginxConfiguration.h"

#include <stdexcept>

#include "tests/support/Files.h"
#include "tests/support/Template.h"

namespace test {
namespace {

constexpr const char* kMain = R"(
daemon off;
master_process off;
pid @FOLDER@/nginx.pid;
lock_file @FOLDER@/nginx.lock;
error_log @FOLDER@/error.log info;
load_module @MODULES@/ndk_http_module.so;
load_module @MODULES@/ngx_http_lua_module.so;
load_module @MODULES@/ngx_http_echo_module.so;
events { worker_connections 8192; }
http {
  log_format fields escape=none '$connection\t$connection_requests\t$server_protocol\t$request_method\t$request_uri\t$status\t$body_bytes_sent\t$server_port\t$http_host\t$request';
  access_log @FOLDER@/access.log fields;
  client_body_temp_path @FOLDER@/body;
  proxy_temp_path @FOLDER@/proxy;
  fastcgi_temp_path @FOLDER@/fastcgi;
  uwsgi_temp_path @FOLDER@/uwsgi;
  scgi_temp_path @FOLDER@/scgi;
  default_type text/plain;
  keepalive_timeout 600s;
  keepalive_requests 1000000;
  send_timeout 600s;
  client_max_body_size 64m;
  client_body_buffer_size 2m;
  client_header_buffer_size 64k;
  large_client_header_buffers 8 64k;
  lua_check_client_abort on;
  lua_socket_log_errors off;
  # Reading notices an end of the connection that came together with the request, which the check for aborts does
  # not. HTTP/2 has no such socket.
  init_by_lua_block {
    function wait_for_end()
      local ok, socket = pcall(ngx.req.socket, true)
      if ok and socket then
        socket:settimeout(86400000)
        socket:receive(1)
        ngx.exit(499)
      end
      ngx.sleep(86400)
    end
  }
  absolute_redirect off;
  underscores_in_headers on;
  server_tokens off;
  server {
    listen 127.0.0.1:@PORT@ backlog=8192;
    @TLS@
    root @FOLDER@/none;
    @LOCATIONS@
    @EXTRA@
  }
}
)";

constexpr const char* kTls = R"(
    listen 127.0.0.1:@TLSPORT@ ssl @HTTP2@ backlog=8192;
    ssl_certificate @CERTIFICATE@;
    ssl_certificate_key @KEY@;
    ssl_protocols TLSv1.2 TLSv1.3;
    ssl_ciphers DEFAULT@SECLEVEL=0;
)";

constexpr const char* kBodies = R"(
    location = /alive { access_log off; return 200 "@FOLDER@"; }
    location = /connections { access_log off; stub_status; }
    location = /mark { return 200 "marked"; }
    location = /text { content_by_lua_block {
      ngx.req.read_body()
      ngx.header.content_length = 12
      ngx.print("Hello, pool!")
    } }
    location = /utf8 { content_by_lua_block {
      ngx.req.read_body()
      ngx.header.content_type = "text/plain; charset=utf-8"
      ngx.print("Grüße, 世界 🌍")
    } }
    location = /latin1 { content_by_lua_block { ngx.req.read_body() ngx.print("caf\233 ol\233\0after") } }
    location = /zero { content_by_lua_block { ngx.req.read_body() ngx.print("before\0after") } }
    location = /empty { content_by_lua_block { ngx.req.read_body() ngx.header.content_length = 0 } }
    location = /gzip {
      gzip on; gzip_min_length 0; gzip_types *;
      content_by_lua_block {
        ngx.req.read_body()
        for line = 1, 200 do ngx.print("compressed line " .. line .. "\n") end
      }
    }
    location = /encoding/broken { content_by_lua_block {
      ngx.req.read_body()
      ngx.header.content_encoding = "gzip"
      ngx.print("these bytes are no gzip stream at all")
    } }
    location = /big { content_by_lua_block {
      ngx.req.read_body()
      local left = tonumber(ngx.var.arg_bytes)
      ngx.header.content_length = left
      local filler = string.rep("0123456789abcdef", 4095)
      local block = 0
      while left > 0 do
        local piece = string.format("%015d\n", block) .. filler
        if #piece > left then piece = piece:sub(1, left) end
        ngx.print(piece)
        ngx.flush(true)
        left = left - #piece
        block = block + 1
      end
    } }
    location /files/ { alias @FOLDER@/files/; }
)";

constexpr const char* kRequests = R"(
    location = /echo { content_by_lua_block {
      ngx.req.read_body()
      local body = ngx.req.get_body_data() or ""
      local ok, head = pcall(ngx.req.raw_header)
      if not ok then
        head = ngx.req.get_method() .. " " .. ngx.var.request_uri .. " " .. ngx.var.server_protocol .. "\r\n"
        for name, value in pairs(ngx.req.get_headers(0, true)) do
          for _, one in ipairs(type(value) == "table" and value or { value }) do
            head = head .. name .. ": " .. tostring(one) .. "\r\n"
          end
        end
        head = head .. "\r\n"
      end
      ngx.print(ngx.encode_base64(head), "\n", ngx.encode_base64(body), "\n")
    } }
    location ~ ^/status/(\d+)$ { content_by_lua_block {
      ngx.req.read_body()
      ngx.status = tonumber(ngx.var[1])
      ngx.print("status " .. ngx.var[1])
    } }
    location = /retry-after { content_by_lua_block {
      ngx.req.read_body()
      ngx.status = 429
      if ngx.var.arg_value then ngx.header["Retry-After"] = ngx.unescape_uri(ngx.var.arg_value) end
      ngx.header["TrackingId"] = "track-429"
      ngx.print("slow down")
    } }
    location = /tracking { content_by_lua_block {
      ngx.req.read_body()
      ngx.header["TrackingId"] = "track-4711"
      ngx.print("tracked")
    } }
    location = /headers/huge { content_by_lua_block {
      ngx.req.read_body()
      for field = 1, 320 do ngx.header["X-Filler-" .. field] = string.rep("f", 1000) end
      ngx.print("behind a huge header block")
    } }
    location = /cookie/set { content_by_lua_block {
      ngx.req.read_body()
      ngx.header["Set-Cookie"] = ngx.var.arg_name .. "=" .. ngx.var.arg_value .. "; Path=/"
      ngx.print("set")
    } }
    location = /cookie/show { content_by_lua_block { ngx.req.read_body() ngx.print(ngx.var.http_cookie or "") } }
)";

constexpr const char* kRedirects = R"(
    location ~ ^/redirect/(\d\d\d)$ { content_by_lua_block {
      ngx.req.read_body()
      ngx.status = tonumber(ngx.var[1])
      local default = ngx.var.scheme .. "://" .. ngx.var.http_host .. "/echo"
      ngx.header["Location"] = ngx.var.arg_to and ngx.unescape_uri(ngx.var.arg_to) or default
      ngx.print("redirect " .. ngx.var[1])
    } }
    location = /redirect/cross { content_by_lua_block {
      ngx.req.read_body()
      ngx.status = tonumber(ngx.var.arg_code or "302")
      ngx.header["Location"] = ngx.unescape_uri(ngx.var.arg_to)
      ngx.print("redirect")
    } }
    location = /redirect/loop { content_by_lua_block {
      ngx.req.read_body()
      ngx.status = 302
      ngx.header["Location"] = ngx.var.scheme .. "://" .. ngx.var.http_host .. "/redirect/loop"
      ngx.print("redirect")
    } }
    location ~ ^/redirect/chain/(\d+)$ { content_by_lua_block {
      ngx.req.read_body()
      local left = tonumber(ngx.var[1])
      ngx.status = 302
      ngx.header["Location"] = left == 0 and "/text" or "/redirect/chain/" .. (left - 1)
      ngx.print("redirect")
    } }
    location = /redirect/bad/ftp { content_by_lua_block {
      ngx.req.read_body()
      ngx.status = 302
      ngx.header["Location"] = "ftp://x/"
      ngx.print("redirect")
    } }
    location = /redirect/bad/no-host { content_by_lua_block {
      ngx.req.read_body()
      ngx.status = 302
      ngx.header["Location"] = "http://"
      ngx.print("redirect")
    } }
    location = /redirect/none { content_by_lua_block {
      ngx.req.read_body()
      ngx.status = 302
      ngx.print("redirect")
    } }
)";

constexpr const char* kFaults = R"(
    location = /close { content_by_lua_block { ngx.req.read_body() ngx.exit(444) } }
    location = /reset { reset_timedout_connection on; return 444; }
    location = /cut { content_by_lua_block {
      ngx.req.read_body()
      ngx.header.content_length = 1000
      ngx.print("only a start")
      ngx.flush(true)
      ngx.exit(444)
    } }
    location = /drip { content_by_lua_block {
      ngx.req.read_body()
      for byte = 1, tonumber(ngx.var.arg_n) do
        if byte > 1 then ngx.sleep(tonumber(ngx.var.arg_ms) / 1000) end
        ngx.print("x")
        ngx.flush(true)
      end
    } }
    location = /half { content_by_lua_block {
      ngx.req.read_body()
      ngx.print("first half, ")
      ngx.flush(true)
      if not ngx.var.arg_ms then wait_for_end() end
      ngx.sleep(tonumber(ngx.var.arg_ms) / 1000)
      ngx.print("second half")
    } }
    location = /late { content_by_lua_block {
      ngx.req.read_body()
      ngx.sleep(tonumber(ngx.var.arg_ms) / 1000)
      ngx.print("late")
    } }
    location = /silent { content_by_lua_block { ngx.req.read_body() wait_for_end() } }
)";

std::string modulesFolder() {
  for (const char* folder :
       {"/usr/lib/nginx/modules", "/usr/share/nginx/modules", "/usr/lib64/nginx/modules"}) {
    if (fileExists(std::string(folder) + "/ngx_http_lua_module.so")) {
      return folder;
    }
  }
  throw std::runtime_error("nginx's lua module is not installed");
}

}  // namespace

std::string nginxConfiguration(const NginxConfigurationInput& input) {
  return filledIn(kMain, {{"TLS", input.tlsPort == 0 ? "" : kTls},
                          {"LOCATIONS", std::string(kBodies) + kRequests + kRedirects + kFaults},
                          {"EXTRA", input.extraLocations},
                          {"FOLDER", input.folder},
                          {"MODULES", modulesFolder()},
                          {"PORT", std::to_string(input.port)},
                          {"TLSPORT", std::to_string(input.tlsPort)},
                          {"HTTP2", input.http2 ? "http2" : ""},
                          {"CERTIFICATE", input.certificateFile},
                          {"KEY", input.keyFile}});
}

}  // namespace test
