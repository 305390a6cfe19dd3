// Where files are, and files that are appended to.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "foundation/base/Descriptor.h"
#include "foundation/files/FileHandle.h"
#include "foundation/files/SearchPath.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace foundation {
namespace {

using Folders = std::vector<std::string>;

class SearchPath : public testing::Test {
 protected:
  ~SearchPath() override { unsetenv("ZEP_APPLICATIONS_DIR"); }

  static Folders applications() {
    return searchPathForDirectoriesInDomains(SearchPathDirectory::Application, SearchPathDomainMask::System);
  }
};

TEST_F(SearchPath, OfApplicationsIsOptOrWhatTheEnvironmentSays) {
  unsetenv("ZEP_APPLICATIONS_DIR");
  EXPECT_EQ(applications(), Folders{"/opt"});
  setenv("ZEP_APPLICATIONS_DIR", "", 1);
  EXPECT_EQ(applications(), Folders{"/opt"});
  setenv("ZEP_APPLICATIONS_DIR", "/srv/apps", 1);
  EXPECT_EQ(applications(), Folders{"/srv/apps"});
}

TEST_F(SearchPath, IsEmptyForARelativePath) {
  for (const char* path : {"apps", "./apps", "../apps", "~/apps", "."}) {
    setenv("ZEP_APPLICATIONS_DIR", path, 1);
    EXPECT_EQ(applications(), Folders{}) << path;
  }
}

TEST_F(SearchPath, KnowsNoOtherFolders) {
  EXPECT_EQ(searchPathForDirectoriesInDomains(SearchPathDirectory{2}, SearchPathDomainMask::System),
            Folders{});
  EXPECT_EQ(searchPathForDirectoriesInDomains(SearchPathDirectory::Application, SearchPathDomainMask{1}),
            Folders{});
}

class AppendedFile : public testing::Test {
 protected:
  /// Whether the bytes were appended.
  bool append(const std::string& bytes) {
    std::optional<FileHandle> file = FileHandle::forAppendingAtPath(path_);
    return file && file->writeData(bytes);
  }

  test::TemporaryFolder folder_;
  const std::string path_ = folder_.file("file");
};

TEST_F(AppendedFile, KeepsWhatItHolds) {
  test::writeFile(path_, "old");
  EXPECT_TRUE(append("new"));
  EXPECT_TRUE(append(""));
  EXPECT_TRUE(append("er"));
  EXPECT_EQ(test::readFile(path_), "oldnewer");
}

TEST_F(AppendedFile, GrowsFromSeveralHandles) {
  test::writeFile(path_, "");
  std::optional<FileHandle> first = FileHandle::forAppendingAtPath(path_);
  std::optional<FileHandle> second = FileHandle::forAppendingAtPath(path_);
  ASSERT_TRUE(first && second);
  EXPECT_TRUE(first->writeData("1"));
  EXPECT_TRUE(second->writeData("2"));
  EXPECT_TRUE(first->writeData("3"));
  EXPECT_EQ(test::readFile(path_), "123");
}

TEST_F(AppendedFile, IsNotMade) {
  EXPECT_FALSE(append("x"));
  EXPECT_FALSE(test::fileExists(path_));
}

TEST_F(AppendedFile, IsFoundBehindALink) {
  test::writeFile(folder_.file("target"), "");
  std::filesystem::create_symlink("target", path_);
  EXPECT_TRUE(append("x"));
  EXPECT_EQ(test::readFile(folder_.file("target")), "x");
}

TEST_F(AppendedFile, IsNoFolderAndNoDevice) {
  std::filesystem::create_directory(path_);
  EXPECT_FALSE(append("x"));
  EXPECT_FALSE(FileHandle::forAppendingAtPath("/dev/null").has_value());
}

TEST_F(AppendedFile, IsNoPipe) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(append("x")) << "without a reader";
  const Descriptor reader(open(path_.c_str(), O_RDONLY | O_NONBLOCK));
  ASSERT_TRUE(reader.isOpen());
  EXPECT_FALSE(append("x")) << "with a reader";
  char byte = 0;
  EXPECT_EQ(read(reader.number(), &byte, 1), 0);
}

/// The largest size of files, and the end of the process for whoever exceeds it and does not see to the signal.
class SizeLimit {
 public:
  explicit SizeLimit(rlim_t bytes) : action_(std::signal(SIGXFSZ, SIG_DFL)) {
    getrlimit(RLIMIT_FSIZE, &limit_);
    const rlimit lower{.rlim_cur = bytes, .rlim_max = limit_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &lower);
  }
  ~SizeLimit() {
    setrlimit(RLIMIT_FSIZE, &limit_);
    std::signal(SIGXFSZ, action_);
  }
  SizeLimit(const SizeLimit&) = delete;
  SizeLimit& operator=(const SizeLimit&) = delete;

 private:
  void (*action_)(int);
  rlimit limit_{};
};

TEST_F(AppendedFile, TakesAllOrNothing) {
  test::writeFile(path_, "old");
  bool isWhole = true;
  {
    const SizeLimit limit(5);
    isWhole = append("new");
  }
  EXPECT_FALSE(isWhole);
  EXPECT_EQ(test::readFile(path_), "old");
  EXPECT_TRUE(append("new"));
  EXPECT_EQ(test::readFile(path_), "oldnew");
}

TEST_F(AppendedFile, IsClosedAndNotInherited) {
  test::writeFile(path_, "");
  // The lowest free number is the next one to be opened.
  const int number = dup(0);
  ASSERT_GE(number, 0);
  close(number);
  {
    const std::optional<FileHandle> file = FileHandle::forAppendingAtPath(path_);
    ASSERT_TRUE(file.has_value());
    EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC);
  }
  EXPECT_EQ(fcntl(number, F_GETFD), -1);
}

TEST_F(AppendedFile, IsMadeEmptyAndOnlyWhenThereIsNone) {
  EXPECT_TRUE(createFileAtPath(path_));
  EXPECT_EQ(test::readFile(path_), "");
  test::writeFile(path_, "old");
  EXPECT_FALSE(createFileAtPath(path_));
  EXPECT_EQ(test::readFile(path_), "old");
  EXPECT_FALSE(createFileAtPath(folder_.file("none/file")));
}

TEST_F(AppendedFile, IsNotMadeThroughALinkToNowhere) {
  std::filesystem::create_symlink("nowhere", path_);
  EXPECT_FALSE(createFileAtPath(path_));
  EXPECT_FALSE(test::fileExists(folder_.file("nowhere")));
}

}  // namespace
}  // namespace foundation
