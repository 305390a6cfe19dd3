#include "foundation/url/loader/FileLoad.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/base/Retry.h"
#include "foundation/files/RegularFile.h"
#include "foundation/runloop/DispatchQueue.h"
#include "foundation/url/loader/ErrorTable.h"

namespace foundation {
namespace {

int hexDigit(char c) {
  return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
}

/// Nothing when the path holds an encoded zero byte.
std::optional<std::string> decodedPath(const std::string& path) {
  std::string decoded;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] != '%') {
      decoded.push_back(path[i]);
      continue;
    }
    decoded.push_back(static_cast<char>(hexDigit(path[i + 1]) * 16 + hexDigit(path[i + 2])));
    i += 2;
    if (decoded.back() == '\0') {
      return std::nullopt;
    }
  }
  return decoded;
}

void fail(TransferClient& client, URLErrorCode code, const std::string& detail) {
  client.failed(makeURLError(code, detail));
}

void read(const URL& url, std::size_t bodyLimit, TransferClient& client) {
  const std::optional<std::string> path = decodedPath(url.path());
  if (!path || path->empty() || !(url.host().empty() || url.host() == "localhost")) {
    fail(client, URLErrorCode::BadURL, "no local file");
    return;
  }
  const RegularFile file(*path);
  if (!file.isOpen()) {
    fail(client, urlErrorCodeOfFile(file.error()),
         file.error() != 0 ? std::strerror(file.error()) : "not a regular file");
    return;
  }
  client.responseReceived(URLResponse(url), file.size());

  std::vector<char> buffer(std::size_t{256} << 10);
  std::size_t total = 0;
  while (true) {
    const ssize_t count = file.read(buffer.data(), buffer.size());
    if (count < 0) {
      fail(client, urlErrorCodeOfFile(errno), std::strerror(errno));
      return;
    }
    if (count == 0) {
      client.finished();
      return;
    }
    total += static_cast<std::size_t>(count);
    const auto taken = total > bodyLimit
                           ? TransferClient::Taken::NoMemory
                           : client.dataReceived(buffer.data(), static_cast<std::size_t>(count));
    if (taken == TransferClient::Taken::NotWanted) {
      return;
    }
    if (taken == TransferClient::Taken::NoMemory) {
      fail(client, URLErrorCode::DataLengthExceedsMaximum, "the file does not fit into memory");
      return;
    }
  }
}

void readFile(const URL& url, std::size_t bodyLimit, TransferClient& client) {
  try {
    read(url, bodyLimit, client);
  } catch (const std::bad_alloc&) {
    untilThereIsMemory([&] { fail(client, URLErrorCode::Unknown, "no memory to read the file"); });
  }
}

}  // namespace

void startFileLoad(const URL& url, std::size_t bodyLimit, const std::shared_ptr<TransferClient>& client) {
  if (!DispatchQueue::workers().async([url, bodyLimit, client] { readFile(url, bodyLimit, *client); })) {
    fail(*client, URLErrorCode::Unknown, "no thread to read the file");
  }
}

}  // namespace foundation
