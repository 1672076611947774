"""What the packaging tests share: this build, its clients, and documents made by Python's own zipfile."""

import os
import pathlib
import shutil
import subprocess
import wave
import zipfile

SOURCE = pathlib.Path(os.environ["QCF_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["QCF_BUILD_DIR"])
SCRATCH = pathlib.Path(os.environ["QCF_SCRATCH_DIR"])
CMAKE = os.environ["QCF_CMAKE"]
CXX = os.environ["QCF_CXX"]
CXX_FLAGS = os.environ["QCF_CXX_FLAGS"].split()
HAS_IMPORTER = os.environ["QCF_HAS_IMPORTER"] == "1"
HAS_QSNDHOST = os.environ["QCF_HAS_QSNDHOST"] == "1"
HAS_QCFPKG = os.environ["QCF_HAS_QCFPKG"] == "1"
CONSUMER = pathlib.Path(__file__).parent / "consumer"

MEDIA_TYPE = "application/x-example"


def run(*command, **options):
    """The standard output of a command that has to succeed."""
    done = attempt(*command, **options)
    if done.returncode != 0:
        text = " ".join(map(str, command))
        raise AssertionError(f"{text}\nended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def attempt(*command, **options):
    return subprocess.run(list(map(str, command)), capture_output=True, text=True, **options)


def scratch(name):
    """A new, empty folder."""
    folder = SCRATCH / name
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    return folder


def make_package(path):
    """A package with a stored type and a deflated text."""
    with zipfile.ZipFile(path, "w") as archive:
        archive.writestr("mimetype", MEDIA_TYPE)
        archive.writestr("text.txt", "some text", zipfile.ZIP_DEFLATED)
    return path


def make_sound_document(path, frame=bytes(4)):
    """A document with half a second of one frame: two channels, 8000 Hz, 16 bits."""
    audio = path.with_suffix(".wav")
    with wave.open(str(audio), "wb") as out:
        out.setparams((2, 2, 8000, 0, "NONE", ""))
        out.writeframes(frame * 4000)
    with zipfile.ZipFile(path, "w") as archive:
        archive.writestr("mimetype", MEDIA_TYPE)
        archive.write(audio, "Mixdown.wav")
    return path


def configure(folder, package_dir, **cache):
    """Configures the consumer's project against the CMake package in `package_dir`."""
    cache = {
        "CMAKE_CXX_COMPILER": CXX,
        "CMAKE_CXX_FLAGS": " ".join(CXX_FLAGS),
        "CMAKE_TOOLCHAIN_FILE": os.environ["QCF_TOOLCHAIN"],
        "qcfpkg_DIR": package_dir,
        **cache,
    }
    settings = [f"-D{name}={value}" for name, value in cache.items() if value]
    return attempt(CMAKE, "-G", "Ninja", "-S", CONSUMER, "-B", folder, *settings)


def build_consumer(folder, package_dir, **cache):
    done = configure(folder, package_dir, **cache)
    if done.returncode != 0:
        raise AssertionError(done.stdout + done.stderr)
    run(CMAKE, "--build", folder)
    return folder
