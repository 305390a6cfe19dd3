// Targets of downloads that cannot be written, or not whole. A download that is not written is done all the same.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "tests/host/HostPool.h"
#include "tests/hostile/Attack.h"
#include "tests/hostile/Namespace.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

std::string answer(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

class HostileTarget : public testing::Test {
 protected:
  /// Downloads the body there.
  Outcome download(const std::string& path) {
    if (!server_) {
      server_.emplace(RawServer::answering(answer(body_)));
    }
    return pool_.run({.url = server_->url("/"), .file = path});
  }

  const std::string body_ = std::string(1 << 20, 'b');
  TemporaryFolder folder_;
  HostPool pool_;

 private:
  /// Made at its first use: a process with threads can enter no namespace.
  std::optional<RawServer> server_;
};

TEST_F(HostileTarget, ThatCannotBeWrittenIsDoneAllTheSame) {
  const std::string loop = folder_.file("loop");
  std::filesystem::create_symlink(loop, loop);
  for (const std::string& path :
       {std::string("/dev/full"), folder_.path(), folder_.file("no/such/folder"), loop,
        folder_.file(std::string(300, 'n')), folder_.file("x") + "/", std::string("/proc/self/status")}) {
    EXPECT_EQ(download(path), done(path));
  }
  EXPECT_TRUE(std::filesystem::is_directory(folder_.path()));
  EXPECT_EQ(download(folder_.file("good")).status, ZEP_HTTP_TASK_DONE);
  EXPECT_TRUE(readFile(folder_.file("good")) == body_);
}

TEST_F(HostileTarget, OnAFullDiskHoldsWhatFits) {
  enterNamespaces(CLONE_NEWNS);
  constexpr std::size_t kSize = 65536;
  ASSERT_EQ(mount("none", folder_.path().c_str(), "tmpfs", 0, "size=64k"), 0);
  const std::string path = folder_.file("part");
  EXPECT_EQ(download(path), done(path));
  const std::string part = readFile(path);
  EXPECT_GT(part.size(), 0U);
  EXPECT_LE(part.size(), kSize);
  EXPECT_TRUE(body_.starts_with(part));
  ASSERT_EQ(umount(folder_.path().c_str()), 0);
  EXPECT_EQ(download(path), done(path));
  EXPECT_TRUE(readFile(path) == body_);
}

TEST_F(HostileTarget, OverTheLimitOfAFilesSizeDoesNotEndTheHost) {
  ASSERT_EQ(std::signal(SIGXFSZ, SIG_DFL), SIG_DFL);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlim_t before = std::exchange(limit.rlim_cur, 1000);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::string path = folder_.file("limited");
  EXPECT_EQ(download(path), done(path));
  EXPECT_TRUE(readFile(path) == body_.substr(0, 1000));
  limit.rlim_cur = before;
  setrlimit(RLIMIT_FSIZE, &limit);
  sigset_t signals;
  sigpending(&signals);
  EXPECT_EQ(sigismember(&signals, SIGXFSZ), 0);
  pthread_sigmask(SIG_SETMASK, nullptr, &signals);
  EXPECT_EQ(sigismember(&signals, SIGXFSZ), 0);
  EXPECT_EQ(download(path), done(path));
  EXPECT_TRUE(readFile(path) == body_);
}

TEST_F(HostileTarget, ThatIsAPipeDoesNotHoldTheHostUp) {
  const std::string path = folder_.file("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(download(path), done(path)) << "nobody reads";

  // Somebody who reads a little and goes: the rest is a broken pipe.
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  fcntl(reader, F_SETFL, 0);
  std::thread reading([reader] {
    char byte = 0;
    // As long as nobody writes it is at its end.
    EXPECT_TRUE(waitUntil([&] { return read(reader, &byte, 1) == 1; }));
    close(reader);
  });
  EXPECT_EQ(download(path), done(path));
  reading.join();
  expectServes(pool_);
}

}  // namespace
}  // namespace test
