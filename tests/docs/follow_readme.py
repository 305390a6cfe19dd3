#!/usr/bin/env python3
"""Does what README.md tells a newcomer to do, as it stands there: compiles and runs the hosts by its command lines,
installs, builds with CMake and with pkg-config, runs its job file, and puts a trace plug-in of docs/tracing.md's
functions beside a host. Every request goes to a server of this script.

usage: follow_readme.py PROJECT_FOLDER BUILD_FOLDER
"""

import http.server
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import threading


class Server(http.server.ThreadingHTTPServer):
    """Answers every request by "hello" and keeps what it was asked; also as a proxy."""

    daemon_threads = True

    def __init__(self):
        super().__init__(("127.0.0.1", 0), Handler)
        self.requests = []
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def url(self):
        return f"http://127.0.0.1:{self.server_port}"


class Handler(http.server.BaseHTTPRequestHandler):
    def answer(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0))).decode()
        self.server.requests.append((self.command, self.path, body))
        self.send_response(200)
        self.send_header("Content-Length", "5")
        self.end_headers()
        self.wfile.write(b"hello")

    do_GET = do_POST = answer

    def log_message(self, *_):
        pass


class Document:
    def __init__(self, path):
        self.text = path.read_text()

    def block(self, language):
        """The first one of that language."""
        return re.search(rf"^```{language}\n(.*?)^```", self.text, re.M | re.S).group(1)

    def line(self, begin):
        """The only command line that begins so, without the remark behind it."""
        lines = re.findall(rf"^    ({re.escape(begin)}.*)$", self.text, re.M)
        if len(lines) != 1:
            sys.exit(f"there are {len(lines)} lines that begin with: {begin}")
        return lines[0]


class Newcomer:
    """A folder that looks like the project after ./run, and a home of its own."""

    def __init__(self, project, build, folder):
        self.folder = folder
        self.server = Server()
        for name in ("foundation", "httpPool"):
            (folder / name).symlink_to(project / name)
        (folder / "build").mkdir()
        (folder / "build/release").symlink_to(build)
        ignored = re.compile(".*_proxy|PKG_CONFIG.*|CMAKE_.*|LD_LIBRARY_PATH", re.I)
        self.environment = {key: value for key, value in os.environ.items() if not ignored.fullmatch(key)}
        self.environment["HOME"] = str(folder)

    def run(self, command, **environment):
        done = subprocess.run(["bash", "-euc", command], cwd=self.folder, env={**self.environment, **environment},
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=240, check=False)
        if done.returncode != 0:
            sys.exit(f"{command}\nended with {done.returncode}:\n{done.stdout}")
        return done.stdout

    def expect(self, command, output, **environment):
        got = self.run(command, **environment)
        if got != output:
            sys.exit(f"{command}\nprinted {got!r} and not {output!r}")
        print(f"follows: {command}")

    def write(self, name, text):
        (self.folder / name).write_text(text)


def follow_hosts(readme, newcomer):
    for source, language, compiler, output in (("host.c", "c", "cc -I. ", "3: hello\n"),
                                               ("host.cpp", "cpp", "c++ -std=", "hello\n")):
        newcomer.write(source, readme.block(language))
        newcomer.run(readme.line(compiler))
        newcomer.expect(f"./host {newcomer.server.url()}/{language}", output)
        (newcomer.folder / "host").unlink()


def follow_installing(readme, newcomer):
    newcomer.run(readme.line("cmake --install"))
    prefix = newcomer.folder / "httppool"
    libraries = next(prefix.rglob("libhttpPool.so.1")).parent
    newcomer.run(readme.line("cc host.c"), PKG_CONFIG_PATH=str(libraries / "pkgconfig"))
    newcomer.expect(f"./host {newcomer.server.url()}/installed", "3: hello\n", LD_LIBRARY_PATH=str(libraries))
    newcomer.write("CMakeLists.txt", "\n".join((
        "cmake_minimum_required(VERSION 3.16)", "project(host LANGUAGES C CXX)", readme.line("find_package("),
        "add_executable(host host.c)", readme.line("target_link_libraries("), "")))
    newcomer.run(f"cmake -S . -B cmake-build -DCMAKE_PREFIX_PATH={prefix} && cmake --build cmake-build")
    newcomer.expect(f"cmake-build/host {newcomer.server.url()}/cmake", "3: hello\n")


def follow_job_file(readme, newcomer):
    newcomer.write("JOBS.json", readme.block("json"))
    tool = readme.line("httppool run JOBS.json").split("  ")[0]
    newcomer.server.requests.clear()
    newcomer.run(f"build/release/bin/{tool}", http_proxy=newcomer.server.url())
    expected = [("GET", "http://example.org/", ""), ("GET", "http://example.org/i.png", ""),
                ("POST", "http://example.org/vote", "choice=1")]
    if sorted(newcomer.server.requests) != expected or (newcomer.folder / "i.png").read_text() != "hello":
        sys.exit(f"the job file requested {newcomer.server.requests}")
    print(f"follows: {tool}")


def follow_tracing(tracing, newcomer):
    newcomer.write("plugin.c", "#include <stdio.h>\n" + tracing.block("c") +
                   "unsigned long QlxGetTraceLevel(void) { return 1; }\n" +
                   "".join(f"int {name}(const char* format, ...) {{ return fputs(format, stderr); }}\n"
                           for name in ("QLXDEBUG", "QLXINFO", "QLXWARN", "QLXERROR")))
    newcomer.run("mkdir -p Contents/MacOS Contents/PlugIns && cp cmake-build/host Contents/MacOS/host && "
                 "cc -Wall -Werror -shared -fPIC plugin.c -o Contents/PlugIns/qlxtracedylib.dylib")
    printed = newcomer.run(f"Contents/MacOS/host {newcomer.server.url()}/traced")
    if "--> ZEP_HttpPool_TaskRun" not in printed or "<-- ZEP_HttpPool_TaskRun" not in printed:
        sys.exit(f"a plug-in of one's own was told:\n{printed}")
    print("follows: a plug-in of one's own")


def main():
    project, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    readme = Document(project / "README.md")
    with tempfile.TemporaryDirectory() as folder:
        newcomer = Newcomer(project, build, pathlib.Path(folder))
        follow_hosts(readme, newcomer)
        follow_installing(readme, newcomer)
        follow_job_file(readme, newcomer)
        follow_tracing(Document(project / "docs/tracing.md"), newcomer)


main()
