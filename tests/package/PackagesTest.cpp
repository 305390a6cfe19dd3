// The Debian packages themselves: what is in them, what they need, and what the system is told about them.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

#include "tests/package/Command.h"
#include "tests/package/Packages.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

const std::string kLibraries = "usr/" LIBRARY_FOLDER;

/// The files and links of a package, without folders.
std::set<std::string> filesOf(const std::string& package) {
  std::set<std::string> files;
  for (const std::string& line : linesOf(outputOf({"dpkg-deb", "--contents", packageFile(package)}))) {
    const std::size_t begin = line.find("./") + 2;
    if (!line.ends_with('/')) {
      files.insert(line.substr(begin, line.find(" -> ") - begin));
    }
  }
  return files;
}

std::set<std::string> documentsOf(const std::string& package) {
  const std::string folder = "usr/share/doc/" + package;
  return {folder + "/changelog.Debian.gz", folder + "/changelog.gz", folder + "/copyright"};
}

TEST(Packages, OfTheLibraryHasTheLibrariesAndTheirPanel) {
  std::set<std::string> expected = documentsOf("libhttppool1");
  expected.insert({kLibraries + "/libhttpPool.so.1", kLibraries + "/libhttpPool.so.1.0.0",
                   kLibraries + "/libzepfoundation.so.1", kLibraries + "/libzepfoundation.so.1.0.0",
                   "usr/libexec/zep/zep-trust-panel", "usr/share/man/man1/zep-trust-panel.1.gz"});
  EXPECT_EQ(filesOf("libhttppool1"), expected);
}

TEST(Packages, OfTheToolsHasProgramPluginAndCompletions) {
  std::set<std::string> expected = documentsOf("httppool-tools");
  expected.insert({"usr/bin/httppool", kLibraries + "/httppool/qlxtracedylib.dylib",
                   "usr/share/man/man1/httppool.1.gz", "usr/share/bash-completion/completions/httppool",
                   "usr/share/zsh/vendor-completions/_httppool"});
  EXPECT_EQ(filesOf("httppool-tools"), expected);
}

TEST(Packages, OfTheDevelopmentFilesHasThePublicHeadersOnly) {
  std::set<std::string> headers;
  for (const std::string& file : filesOf("libhttppool-dev")) {
    if (file.starts_with("usr/include/") && !file.starts_with("usr/include/httppool/httpPool/cpp/")) {
      headers.insert(file);
    }
  }
  EXPECT_EQ(headers, (std::set<std::string>{"usr/include/httppool/foundation/ZEP_Foundation.h",
                                            "usr/include/httppool/httpPool/ZEP_HttpPool.h",
                                            "usr/include/httppool/httpPool/httpPool.hpp"}));
}

TEST(Packages, DependOnWhatTheirProgramsAreLinkedWith) {
  const std::string library = controlField("libhttppool1", "Depends");
  for (const char* package : {"libc6 ", "libcurl4 ", "libglib2.0-0 ", "libgtk-3-0 ", "libssl3 "}) {
    EXPECT_NE(library.find(package), std::string::npos) << package << "in " << library;
  }
  EXPECT_EQ(library.find("libhttppool1"), std::string::npos) << library;
  const std::string tools = controlField("httppool-tools", "Depends");
  EXPECT_NE(tools.find("libhttppool1 (>= "), std::string::npos) << tools;
  EXPECT_EQ(tools.find("libgtk"), std::string::npos) << tools;
  EXPECT_EQ(controlField("libhttppool-dev", "Depends"),
            "libhttppool1 (= " + controlField("libhttppool1", "Version") + ")");
}

/// Everything that the library is built with is here, so nothing else may be missing.
TEST(Packages, MayBeInstalledBesideWhatTheyAreBuiltWith) {
  std::vector<std::string> arguments = {"apt-get", "--simulate", "--no-install-recommends", "install"};
  const std::vector<std::string> files = packageFiles();
  arguments.insert(arguments.end(), files.begin(), files.end());
  std::set<std::string> installed;
  for (const std::string& line : linesOf(outputOf(arguments, {{"LC_ALL", "C"}}))) {
    if (line.starts_with("Inst ")) {
      installed.insert(line.substr(5, line.find(' ', 5) - 5));
    }
  }
  EXPECT_EQ(installed, (std::set<std::string>{"httppool-tools", "libhttppool-dev", "libhttppool1"}));
}

TEST(Packages, TellTheSystemAboutTheLibraries) {
  EXPECT_EQ(controlFile("libhttppool1", "triggers"), "activate-noawait ldconfig\n");
  EXPECT_EQ(controlFile("libhttppool1", "shlibs"), "libhttpPool 1 libhttppool1 (>= " VERSION
                                                   ")\nlibzepfoundation 1 libhttppool1 (>= " VERSION ")\n");
  const std::string symbols = controlFile("libhttppool1", "symbols");
  for (const char* line :
       {"libhttpPool.so.1 libhttppool1 #MINVER#\n", "\n ZEP_HttpPool_TaskRun@HTTPPOOL_1.0 0.1.0\n",
        "\nlibzepfoundation.so.1 libhttppool1 #MINVER#\n", "\n ZEP_RunLoop_Run@ZEP_FOUNDATION_1.0 0.1.0\n"}) {
    EXPECT_NE(symbols.find(line), std::string::npos) << line;
  }
}

TEST(Packages, HaveImagesWithoutASearchPath) {
  const TemporaryFolder root;
  unpackInto(root.path());
  for (const std::string& image :
       {kLibraries + "/libhttpPool.so.1", kLibraries + "/libzepfoundation.so.1",
        kLibraries + "/httppool/qlxtracedylib.dylib", std::string("usr/bin/httppool"),
        std::string("usr/libexec/zep/zep-trust-panel")}) {
    const std::string dynamic = outputOf({"readelf", "--dynamic", "--wide", root.file(image)});
    EXPECT_NE(dynamic.find("(NEEDED)"), std::string::npos) << image;
    EXPECT_EQ(dynamic.find("PATH)"), std::string::npos) << image << ": " << dynamic;
  }
}

TEST(Packages, HaveNothingThatLintianObjectsTo) {
  // No bug of Debian's asked for these packages.
  std::vector<std::string> arguments = {"lintian", "--fail-on", "error,warning", "--suppress-tags",
                                        "initial-upload-closes-no-bugs"};
  const std::vector<std::string> files = packageFiles();
  arguments.insert(arguments.end(), files.begin(), files.end());
  const Finished finished = run(arguments);
  EXPECT_EQ(finished.status, 0) << finished.output;
}

TEST(Packages, OfOneVersionHaveAChangelogOfThatVersion) {
  const TemporaryFolder root;
  unpackInto(root.path());
  for (const char* package : {"libhttppool1", "libhttppool-dev", "httppool-tools"}) {
    const std::string changelog = outputOf(
        {"gzip", "-dc", root.file("usr/share/doc/" + std::string(package) + "/changelog.Debian.gz")});
    EXPECT_TRUE(changelog.starts_with("httppool (" + controlField(package, "Version") + ") "))
        << package << ": " << changelog;
  }
}

}  // namespace
}  // namespace test
