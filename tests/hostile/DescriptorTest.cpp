// Hosts that have used up their descriptors, at each stage of a request.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "foundation/base/Descriptor.h"
#include "tests/host/PanelHost.h"
#include "tests/hostile/Attack.h"
#include "tests/hostile/ServerProcess.h"
#include "tests/hostile/TlsPeer.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/UserTrustSettings.h"

namespace test {
namespace {

/// The highest descriptor that is open.
int highestDescriptor() {
  int highest = 0;
  for (int i = 0; i < 256; ++i) {
    if (fcntl(i, F_GETFD) >= 0) {
      highest = i;
    }
  }
  return highest;
}

void limitDescriptors(rlim_t most) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = most;
  setrlimit(RLIMIT_NOFILE, &limit);
}

/// How many more can be had, up to a bound.
int descriptorsLeft() {
  std::vector<foundation::Descriptor> opened;
  while (opened.size() < 100) {
    foundation::Descriptor descriptor(dup(0));
    if (!descriptor.isOpen()) {
      break;
    }
    opened.push_back(std::move(descriptor));
  }
  return static_cast<int>(opened.size());
}

enum class Before { OneRequest, None };

/// What comes of a host that has so many descriptors left.
enum class Result : int {
  Done = 0,    ///< the task has its result all the same
  Failed = 1,  ///< it has failed, and the next one not
  WrongBefore = 10,
  NoLimit,
  Endless,
  WrongEnd,
  WrongNext,
  Asked,
};

struct Task {
  Call call;
  Outcome expected;
};

Result trySpare(const Task& task, int spare, Before before) {
  PanelHost panel(0);
  HostPool pool;
  if (before == Before::OneRequest && pool.run(task.call) != task.expected) {
    return Result::WrongBefore;
  }
  const int highest = highestDescriptor();
  // Holes would be used, too.
  while (dup(0) >= 0 && highestDescriptor() <= highest) {
  }
  limitDescriptors(static_cast<rlim_t>(highestDescriptor()) + 1 + static_cast<rlim_t>(spare));
  if (descriptorsLeft() != spare) {
    return Result::NoLimit;
  }
  pool.add("short", task.call);
  pool.launch("short");
  if (!pool.await(std::chrono::seconds(20))) {
    return Result::Endless;
  }
  limitDescriptors(1024);
  const Outcome outcome = pool.outcome("short");
  const bool isDone = outcome == task.expected;
  if (!isDone && outcome.status != ZEP_HTTP_TASK_FAILED) {
    return Result::WrongEnd;
  }
  if (pool.run(task.call) != task.expected) {
    return Result::WrongNext;
  }
  if (!panel.panels().empty()) {
    return Result::Asked;
  }
  return isDone ? Result::Done : Result::Failed;
}

/// With none the process's first task cannot be served, and with `enough` every task has to be.
void tryEverySpare(const Task& task, Before before, int enough) {
  for (int spare = 0; spare <= enough; ++spare) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(60);
      _exit(static_cast<int>(trySpare(task, spare, before)));
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << spare << " left, ended by signal " << WTERMSIG(status);
    const auto result = static_cast<Result>(WEXITSTATUS(status));
    EXPECT_TRUE(result == Result::Done || result == Result::Failed)
        << spare << " left: " << static_cast<int>(result);
    if (spare == 0 && before == Before::None) {
      EXPECT_EQ(result, Result::Failed);
    } else if (spare == enough) {
      EXPECT_EQ(result, Result::Done);
    }
  }
}

/// The process's first task, of a server with that certificate.
void tryEverySpareOverTls(const CertificateAuthority::Leaf& leaf, const Outcome& expected) {
  constexpr int kEnough = 10;
  const ServerProcess server([&] { return answeringOverTls(leaf, "good"); });
  tryEverySpare({.call = {.url = server.url("https://localhost")}, .expected = expected}, Before::None,
                kEnough);
}

RawServer::Script answeringGood() {
  return RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood");
}

TEST(UsedUpDescriptors, EndTheTaskAndNotTheNext) {
  const ServerProcess server(&answeringGood);
  tryEverySpare({.call = {.url = server.url("http://localhost")}, .expected = done("good")},
                Before::OneRequest, 10);
}

/// What is made once for the process is made later then. The desktop's proxy settings need some of their own.
TEST(UsedUpDescriptors, EndTheFirstTaskAndNotTheNext) {
  unsetenv("GIO_USE_PROXY_RESOLVER");
  const ServerProcess server(&answeringGood);
  tryEverySpare({.call = {.url = server.url("http://localhost")}, .expected = done("good")}, Before::None,
                25);
}

TEST(UsedUpDescriptors, EndTheFirstTaskOverTlsAndNotTheNext) {
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  tryEverySpareOverTls(authority.good(), done("good"));
}

TEST(UsedUpDescriptors, EndTheFirstTaskThatLooksForItsAuthorityAndNotTheNext) {
  CertificateAuthority authority;
  const std::string folder = authority.rootFolder();
  setenv("SSL_CERT_FILE", (folder + "/none").c_str(), 1);
  setenv("SSL_CERT_DIR", folder.c_str(), 1);
  tryEverySpareOverTls(authority.good(), done("good"));
}

TEST(UsedUpDescriptors, LetNoRevokedServerPass) {
  CertificateAuthority authority;
  const CertificateAuthority::Leaf leaf = authority.revoked();
  setenv("SSL_CERT_FILE", authority.rootAndRevocationsFile().c_str(), 1);
  tryEverySpareOverTls(leaf, failed(1));
}

TEST(UsedUpDescriptors, LetNoServerPassThatAListInAFolderRevokes) {
  CertificateAuthority authority;
  const CertificateAuthority::Leaf leaf = authority.revoked();
  const std::string folder = authority.rootAndRevocationsFolder();
  // Lost in one of many folders, such a list was lost for good.
  for (const std::string& folders : {folder, folder + "/none:" + folder}) {
    SCOPED_TRACE(folders);
    setenv("SSL_CERT_FILE", (folder + "/none").c_str(), 1);
    setenv("SSL_CERT_DIR", folders.c_str(), 1);
    tryEverySpareOverTls(leaf, failed(1));
  }
}

TEST(UsedUpDescriptors, LetNoServerPassThatTheUserRefuses) {
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  const TemporaryFolder configuration;
  setenv("XDG_CONFIG_HOME", configuration.path().c_str(), 1);
  const CertificateAuthority::Leaf leaf = authority.good();
  constexpr int kDeny = 3;
  settleTrust(configuration.path(), leaf.chainFile, {kDeny});
  tryEverySpareOverTls(leaf, failed(1));
}

TEST(UsedUpDescriptors, EndTheFirstLoadOfAFileAndNotTheNext) {
  const TemporaryFolder folder;
  writeFile(folder.file("page"), "good");
  tryEverySpare({.call = {.url = "file://" + folder.file("page")}, .expected = done("good")}, Before::None,
                6);
}

/// The body's file is one more than the connection's.
TEST(UsedUpDescriptors, EndADownloadAndNotTheNext) {
  const TemporaryFolder folder;
  const ServerProcess server(&answeringGood);
  tryEverySpare({.call = {.url = server.url("http://localhost"), .file = folder.file("page")},
                 .expected = done(folder.file("page"))},
                Before::OneRequest, 10);
  EXPECT_EQ(readFile(folder.file("page")), "good");
}

}  // namespace
}  // namespace test
