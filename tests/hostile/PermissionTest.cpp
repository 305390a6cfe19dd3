// Targets of downloads that an ordinary user must not write. A download that is not written is done all the same.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "tests/hostile/Attack.h"
#include "tests/hostile/Namespace.h"
#include "tests/support/Files.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

using std::filesystem::perms;

constexpr perms kMayRead = perms::owner_read | perms::owner_exec;

class ForbiddenTarget : public testing::Test {
 protected:
  /// Downloads the body there, which has to be done.
  void download(const std::string& path) {
    if (!server_) {
      server_.emplace(RawServer::answering(
          "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body_.size()) + "\r\n\r\n" + body_));
    }
    EXPECT_EQ(pool_.run({.url = server_->url("/"), .file = path}), done(path));
  }
  /// The files of the folder, by their paths; links as what they lead to.
  std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path())) {
      files[entry.path()] = entry.is_regular_file() ? readFile(entry.path()) : "no file";
    }
    return files;
  }

  const std::string body_ = std::string(1 << 20, 'b');
  TemporaryFolder folder_;

 private:
  /// Made at its first use: a process with threads can enter no namespace.
  std::optional<RawServer> server_;
  HostPool pool_;
};

class UsersTarget : public ForbiddenTarget {
 protected:
  UsersTarget() {
    for (const char* name : {"read only", "forbidden", "locked"}) {
      std::filesystem::create_directory(folder_.file(name));
    }
    for (const char* name : {"mine", "unwritable", "read only/mine", "forbidden/mine"}) {
      writeFile(folder_.file(name), "old");
    }
    giveToOrdinaryUser(folder_.path());
    if (geteuid() == 0) {
      writeFile(folder_.file("root's"), "old");
    }
    becomeOrdinaryUser();
    std::filesystem::create_symlink("unwritable", folder_.file("link"));
    std::filesystem::permissions(folder_.file("unwritable"), perms::owner_read);
    std::filesystem::permissions(folder_.file("read only"), kMayRead);
  }
  ~UsersTarget() override { std::filesystem::permissions(folder_.file("read only"), perms::owner_all); }

  /// A file of another user; if this user is none of the test's own, one that is everywhere.
  std::string others() const {
    return fileExists(folder_.file("root's")) ? folder_.file("root's") : "/proc/version";
  }
};

TEST_F(UsersTarget, ThatMustNotBeWrittenStaysAsItIs) {
  ASSERT_NE(access(others().c_str(), W_OK), 0) << "not an ordinary user";
  const auto before = files();
  const std::string othersContent = readFile(others());
  std::filesystem::permissions(folder_.file("forbidden"), perms::none);
  for (const char* name : {"unwritable", "link", "read only/new", "forbidden/mine", "forbidden/new",
                           "nowhere/new", "mine/new"}) {
    download(folder_.file(name));
  }
  download(others());
  std::filesystem::permissions(folder_.file("forbidden"), perms::owner_all);
  EXPECT_EQ(files(), before);
  EXPECT_EQ(readFile(others()), othersContent);
}

TEST_F(UsersTarget, IsWrittenInItsPlaceWhateverItsFolderAllows) {
  struct stat before {};
  ASSERT_EQ(stat(folder_.file("read only/mine").c_str(), &before), 0);
  download(folder_.file("read only/mine"));
  struct stat after {};
  ASSERT_EQ(stat(folder_.file("read only/mine").c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_TRUE(readFile(folder_.file("read only/mine")) == body_);
  download(folder_.file("new"));
  EXPECT_TRUE(readFile(folder_.file("new")) == body_);
}

TEST_F(ForbiddenTarget, OnAReadOnlyFileSystemStaysAsItIs) {
  enterNamespaces(CLONE_NEWNS);
  const char* const path = folder_.path().c_str();
  ASSERT_EQ(mount("none", path, "tmpfs", 0, nullptr), 0);
  writeFile(folder_.file("old"), "old");
  const auto before = files();
  ASSERT_EQ(mount("none", path, nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
  download(folder_.file("old"));
  download(folder_.file("new"));
  EXPECT_EQ(files(), before);
  ASSERT_EQ(mount("none", path, nullptr, MS_REMOUNT, nullptr), 0);
  download(folder_.file("old"));
  EXPECT_TRUE(readFile(folder_.file("old")) == body_);
  ASSERT_EQ(umount(path), 0);
}

}  // namespace
}  // namespace test
