#!/usr/bin/env python3
"""Runs clang-tidy over sources, but not again over what it has passed already.

usage: tidy.py BUILD_FOLDER SOURCE...

What has passed is remembered under $XDG_CACHE_HOME/httppool-tidy (~/.cache) by a hash of all that the outcome depends on:
clang-tidy's version and settings, the command line, and the preprocessed source with its comments.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "httppool-tidy"
# They name files of the build, and the output is not wanted.
WITH_VALUE = {"-o", "-MF", "-MT", "-MQ"}
ALONE = {"-c", "-MD", "-MMD"}


def command_lines(build):
    """The arguments of each source, without the compiler and what it writes."""
    lines = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        arguments = shlex.split(entry["command"])
        while not pathlib.Path(arguments[0]).name.rstrip("0123456789-").endswith(("c++", "g++", "cc", "gcc", "clang")):
            arguments.pop(0)  # a launcher
        kept, rest = [], iter(arguments[1:])
        for argument in rest:
            if argument in WITH_VALUE:
                next(rest)
            elif argument not in ALONE:
                kept.append(argument)
        lines.setdefault(str(pathlib.Path(entry["file"]).resolve()), (entry["directory"], kept))
    return lines


def key_of(source, directory, arguments, settings):
    clang = "clang" if source.endswith(".c") else "clang++"
    text = subprocess.run(
        [clang, "-E", "-P", "-C", "-w", "-Wno-unknown-warning-option", *arguments],
        cwd=directory, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    if text.returncode != 0:
        return None
    spelled = " ".join(arguments).replace(str(ROOT), "")
    return hashlib.sha256(b"\0".join([settings, spelled.encode(), text.stdout])).hexdigest()


def check(source, build, lines, settings):
    """None, or what clang-tidy has to say."""
    path = str((ROOT / source).resolve())
    # What this build leaves out clang-tidy reads with the command line of a neighbour.
    key = key_of(path, *lines[path], settings) if path in lines else None
    if key is not None and (CACHE / key).exists():
        return None
    done = subprocess.run(["clang-tidy", "--quiet", "-p", str(build), source],
                          cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        return done.stdout
    if key is not None:
        (CACHE / key).touch()
    return None


def main():
    build, sources = pathlib.Path(sys.argv[1]), sys.argv[2:]
    CACHE.mkdir(parents=True, exist_ok=True)
    lines = command_lines(build)
    version = subprocess.run(["clang-tidy", "--version"], stdout=subprocess.PIPE, check=True).stdout
    settings = version + (ROOT / ".clang-tidy").read_bytes()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        said = [text for text in pool.map(lambda one: check(one, build, lines, settings), sources) if text]
    print("".join(said), end="")
    return 1 if said else 0


if __name__ == "__main__":
    sys.exit(main())
