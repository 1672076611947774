"""What the checks of the macOS builds share. A check whose tools are missing ends with a visible skip."""

import os
import pathlib
import shutil
import subprocess
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
SDK = SOURCE / "build/darwin-sdk"
LINKER = pathlib.Path("/usr/lib/llvm-16/bin/ld64.lld")
SKIP = 77


def run(*command, **options):
    """The standard output of a command that has to succeed."""
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        text = " ".join(str(word) for word in command)
        raise AssertionError(f"{text}\nended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIP)


def require(tools, files=()):
    for tool in tools:
        if shutil.which(tool) is None:
            skip(f"no {tool} (setup.sh --darwin)")
    for file in files:
        if not pathlib.Path(file).exists():
            skip(f"no {file} (setup.sh --darwin)")
    if not (SDK / "usr/lib/libc++.tbd").exists():
        skip("what a build for macOS takes is not put together (darwin-sdk.sh)")


def build(processor, targets):
    """The build folder, one for all presets, with these targets built; `targets` may be a function of the folder."""
    folder = SOURCE / f"build/darwin-{processor}"
    run("cmake", "-S", SOURCE, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DBUILD_TESTING=OFF",
        "-DQCF_BUILD_TOOLS=OFF", "-DQCF_BUILD_ADAPTERS=OFF", "-DQCF_BUILD_EXAMPLES=OFF",
        f"-DCMAKE_TOOLCHAIN_FILE={SOURCE}/cmake/darwin/{processor}.cmake")
    run("ninja", "-C", folder, *(targets(folder) if callable(targets) else targets))
    return folder


def names(*command):
    """The symbols that llvm-nm prints alone."""
    return sorted(set(run("llvm-nm", "--format=just-symbols", *command).split()))


def scratch(name):
    """A new, empty folder of this check."""
    folder = pathlib.Path(os.environ.get("QCF_SCRATCH_DIR", SOURCE / "build")) / name
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    return folder


def main():
    unittest.main(argv=[sys.argv[0], *sys.argv[1:]], verbosity=2)
