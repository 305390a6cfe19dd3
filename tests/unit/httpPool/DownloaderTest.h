#pragma once

// A downloader whose connection the test plays. On the test's thread.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Fakes.h"
#include "TraceLog.h"
#include "Turning.h"
#include "foundation/url/URLConnection.h"
#include "httpPool/MacDownloader.h"

inline foundation::URLRequest requestFor(const char* url) {
  return foundation::URLRequest(*foundation::URL::parse(url));
}

/// Counts as started, with a thread that ends at once: the test plays the connection.
struct IdleDownloader : MacDownloader {
  using MacDownloader::MacDownloader;

  void ThreadProc() override {}
  void DownloadStateChanged(int argument) override {
    arguments.push_back(argument);
    MacDownloader::DownloadStateChanged(argument);
  }

  std::vector<int> arguments;
};

class DownloaderTest : public testing::Test {
 protected:
  DownloaderTest() {
    downloader->SetDownloadEngine(&engine);
    downloader->Start();
    takeTrace();
  }
  ~DownloaderTest() override {
    downloader->Stop();
    turnOnce();
  }

  void respond(int status, const std::vector<foundation::HeaderFields::Field>& fields = {}) {
    foundation::HeaderFields header;
    for (const auto& [name, value] : fields) {
      header.set(name, value);
    }
    downloader->connectionDidReceiveResponse(
        connection, foundation::URLResponse(foundation::URL::parse("http://host/"), status, header));
  }
  void receive(std::string_view bytes) {
    downloader->connectionDidReceiveData(connection, foundation::Data(bytes));
  }
  void finish() { downloader->connectionDidFinishLoading(connection); }
  void fail(int code, const char* domain = foundation::kURLErrorDomain) {
    downloader->connectionDidFailWithError(connection, {domain, code, "the description", "the sentence"});
  }
  std::string body() const { return std::string(downloader->GetData()->view()); }

  FakeEngine engine;
  DeafDelegate deaf;
  /// An identity to pass along; its own events go to nobody.
  foundation::URLConnection connection{foundation::URLRequest(), deaf};
  std::shared_ptr<IdleDownloader> downloader =
      std::make_shared<IdleDownloader>(requestFor("http://host/path"));
};
