// What is installed works from where it is: programs, the panel, and other people's programs that are built with it.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>

#include "tests/package/Command.h"
#include "tests/package/InstalledTree.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

void PrintTo(Origin origin, std::ostream* out) {
  *out << (origin == Origin::Packages ? "Packages" : "MovedInstallation");
}

namespace {

class Installed : public testing::TestWithParam<Origin> {
 protected:
  Installed() : tree(GetParam()) {}

  /// That a program is given these libraries of the installed ones when it starts.
  void expectOwnLibraries(const std::string& program, const std::vector<std::string>& names) {
    const std::string libraries = outputOf({"ldd", program}, tree.environment());
    for (const std::string& name : names) {
      const std::string begin = name + " => ";
      const std::size_t at = libraries.find(begin);
      ASSERT_NE(at, std::string::npos) << name << " in " << libraries;
      const std::size_t path = at + begin.size();
      EXPECT_EQ(std::filesystem::canonical(libraries.substr(path, libraries.find(" (", path) - path)),
                std::filesystem::canonical(tree.libraries() + "/" + name))
          << libraries;
    }
  }

  /// Builds a consumer's program as somebody without CMake does.
  std::string compiled(const std::string& compiler, const std::string& source, const std::string& package) {
    const std::string program = folder.file("consumer");
    std::vector<std::string> arguments = {compiler, "-Wall", "-Werror"};
    if (compiler == CXX_PROGRAM) {
      arguments.emplace_back("-std=c++20");
    }
    arguments.insert(arguments.end(), {CONSUMER_FOLDER "/" + source, "-o", program});
    std::istringstream flags(
        outputOf({"pkg-config", "--cflags", "--libs", package}, tree.packageConfiguration()));
    for (std::string flag; flags >> flag;) {
      arguments.push_back(flag);
    }
    outputOf(arguments);
    return program;
  }

  Environment consumersEnvironment() const { return {{"LD_LIBRARY_PATH", tree.libraries()}}; }

  InstalledTree tree;
  TemporaryFolder folder;
};

TEST_P(Installed, ToolRequestsAPage) {
  NginxServer server;
  const Finished finished =
      run({tree.prefix() + "/bin/httppool", "get", server.url("/text")}, tree.environment());
  EXPECT_EQ(finished.status, 0);
  EXPECT_NE(finished.output.find("Hello, pool!"), std::string::npos) << finished.output;
}

TEST_P(Installed, ProgramsFindTheLibraries) {
  expectOwnLibraries(tree.prefix() + "/bin/httppool", {"libhttpPool.so.1", "libzepfoundation.so.1"});
  expectOwnLibraries(tree.prefix() + "/libexec/zep/zep-trust-panel", {"libzepfoundation.so.1"});
}

TEST_P(Installed, LibraryIsUsedByAProjectOfCMakes) {
  NginxServer server;
  const std::string build = folder.file("build");
  outputOf({CMAKE_PROGRAM, "-S", CONSUMER_FOLDER, "-B", build, "-G", CMAKE_GENERATOR_NAME,
            "-DCMAKE_PREFIX_PATH=" + tree.prefix(), "-DCMAKE_C_COMPILER=" C_PROGRAM,
            "-DCMAKE_CXX_COMPILER=" CXX_PROGRAM});
  outputOf({CMAKE_PROGRAM, "--build", build});
  const Environment environment = consumersEnvironment();
  EXPECT_EQ(outputOf({build + "/c_consumer", server.url("/text")}, environment), "3: Hello, pool!\n");
  EXPECT_EQ(outputOf({build + "/cpp_consumer", server.url("/text")}, environment), "done: Hello, pool!\n");
  outputOf({build + "/loop_consumer"}, environment);
  EXPECT_EQ(server.accesses("/text").size(), 2U);
  EXPECT_NE(
      readFile(build + "/CMakeCache.txt").find("httpPool_DIR:PATH=" + tree.libraries() + "/cmake/httpPool\n"),
      std::string::npos);
}

TEST_P(Installed, LibraryOfAnotherVersionIsNotTaken) {
  const std::string source = folder.file("project");
  std::filesystem::create_directory(source);
  writeFile(source + "/CMakeLists.txt",
            "cmake_minimum_required(VERSION 3.16)\nproject(later LANGUAGES C)\n"
            "find_package(httpPool 99 CONFIG REQUIRED)\n");
  const Finished finished = run({CMAKE_PROGRAM, "-S", source, "-B", folder.file("build"), "-G",
                                 CMAKE_GENERATOR_NAME, "-DCMAKE_PREFIX_PATH=" + tree.prefix()});
  EXPECT_NE(finished.status, 0);
  EXPECT_NE(finished.output.find("httpPoolConfig.cmake, version: " VERSION), std::string::npos)
      << finished.output;
}

TEST_P(Installed, LibraryIsUsedInCWithPkgConfig) {
  NginxServer server;
  const std::string program = compiled(C_PROGRAM, "host.c", "httpPool");
  EXPECT_EQ(outputOf({program, server.url("/text")}, consumersEnvironment()), "3: Hello, pool!\n");
}

TEST_P(Installed, LibraryIsUsedInCppWithPkgConfig) {
  NginxServer server;
  const std::string program = compiled(CXX_PROGRAM, "host.cpp", "httpPool");
  EXPECT_EQ(outputOf({program, server.url("/text")}, consumersEnvironment()), "done: Hello, pool!\n");
}

TEST_P(Installed, PrefixOfPkgConfigIsWhereTheFilesAre) {
  for (const char* package : {"httpPool", "zepfoundation"}) {
    std::string prefix = outputOf({"pkg-config", "--variable=prefix", package}, tree.packageConfiguration());
    prefix.erase(prefix.find_last_not_of('\n') + 1);
    EXPECT_EQ(std::filesystem::weakly_canonical(prefix), std::filesystem::canonical(tree.prefix()))
        << package;
  }
}

TEST_P(Installed, FoundationAloneIsUsedWithPkgConfig) {
  const std::string program = compiled(C_PROGRAM, "loop.c", "zepfoundation");
  outputOf({program}, consumersEnvironment());
  const std::string needed = outputOf({"readelf", "--dynamic", "--wide", program});
  EXPECT_NE(needed.find("[libzepfoundation.so.1]"), std::string::npos) << needed;
  EXPECT_EQ(needed.find("libhttpPool"), std::string::npos) << needed;
}

TEST_P(Installed, ConsumerNeedsThePublicVersionsOnly) {
  const std::string program = compiled(C_PROGRAM, "host.c", "httpPool");
  const std::string versions = outputOf({"readelf", "--version-info", "--wide", program});
  EXPECT_NE(versions.find("Name: HTTPPOOL_1.0"), std::string::npos) << versions;
  EXPECT_NE(versions.find("Name: ZEP_FOUNDATION_1.0"), std::string::npos) << versions;
  EXPECT_EQ(versions.find("ZEP_FOUNDATION_PRIVATE"), std::string::npos) << versions;
  const std::string needed = outputOf({"readelf", "--dynamic", "--wide", program});
  EXPECT_NE(needed.find("[libhttpPool.so.1]"), std::string::npos) << needed;
}

/// Says what becomes of a panel that is asked for with the installed library.
std::string askedPanel(const InstalledTree& tree) {
  Environment environment = {{"LD_LIBRARY_PATH", tree.libraries()},
                             {"DISPLAY", {}},
                             {"WAYLAND_DISPLAY", {}},
                             {"ZEP_TRUST_PANEL", {}}};
  return outputOf({PANEL_HOST_PROGRAM}, environment);
}

TEST_P(Installed, LibraryFindsItsPanel) {
  const std::string panel = tree.prefix() + "/libexec/zep/zep-trust-panel";
  // The installed program itself starts, finds its library and has the host's request to complain about.
  EXPECT_EQ(askedPanel(tree),
            "zep-trust-panel: the request is malformed\n"
            "certificate panel not shown: its program ended with status 2\n"
            "declined\n");
  // It is that file and no other.
  std::filesystem::remove(panel);
  writeFile(panel, "#!/bin/sh\nread line; echo confirmed\n");
  std::filesystem::permissions(panel, std::filesystem::perms::owner_all);
  EXPECT_EQ(askedPanel(tree), "confirmed\n");
  std::filesystem::remove(panel);
  EXPECT_EQ(askedPanel(tree),
            "certificate panel not shown: there is no program zep-trust-panel\n"
            "declined\n");
}

TEST_P(Installed, FilesDoNotNameTheFolderTheyComeFrom) {
  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(tree.prefix())) {
    if (!entry.is_regular_file() || entry.is_symlink()) {
      continue;
    }
    ++files;
    EXPECT_EQ(readFile(entry.path().string()).find(tree.formerPrefix()), std::string::npos) << entry.path();
  }
  EXPECT_GT(files, 20);
}

INSTANTIATE_TEST_SUITE_P(From, Installed, testing::Values(Origin::Packages, Origin::MovedInstallation),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace test
