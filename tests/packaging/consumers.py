"""The library as a client gets it: installed, moved after the installation, and straight from the build tree."""

import os
import unittest

import project
from project import BUILD, CMAKE, CXX, CXX_FLAGS, SOURCE, configure, run

EXPECTED = f"""QCF_PACKAGE_VERSION=1.1.102.1
{project.MEDIA_TYPE}
asked: yes
no entry: 21
no package: 1050
"""


def setUpModule():
    global installed, moved, document
    installed = project.scratch("installed")
    install(installed)
    first_home = project.scratch("first-home")
    install(first_home)
    moved = project.scratch("moved") / "another place"
    first_home.rename(moved)
    document = project.make_package(project.SCRATCH / "document.pkg")


def install(prefix, components=("library", "development")):
    for component in components:
        run(CMAKE, "--install", BUILD, "--prefix", prefix, "--component", component)


def the_only(paths):
    paths = list(paths)
    assert len(paths) == 1, paths
    return paths[0]


def package_dir(prefix):
    return the_only(prefix.rglob("qcfpkgConfig.cmake")).parent


def files(prefix):
    return [path for path in prefix.rglob("*") if path.is_file() or path.is_symlink()]


def has_expat(folder):
    return (folder / "qcfpkgExpatTargets.cmake").exists()


class FindPackage(unittest.TestCase):
    def check(self, name, folder):
        build = project.build_consumer(project.scratch(name), folder)
        for program in ("consumer_shared", "consumer_static"):
            with self.subTest(program):
                self.assertEqual(EXPECTED, run(build / program, document, "mimetype"))

    def test_an_installed_tree_serves_both_libraries(self):
        self.check("find-installed", package_dir(installed))

    def test_a_moved_tree_serves_both_libraries(self):
        self.check("find-moved", package_dir(moved))

    def test_a_build_tree_serves_both_libraries(self):
        self.check("find-build", BUILD)

    def test_the_expat_adapter_is_a_component(self):
        if not has_expat(BUILD):
            self.skipTest("this build has no expat adapter")
        folder = project.build_consumer(
            project.scratch("find-expat"), package_dir(installed), WANTED_COMPONENTS="expat")
        self.assertEqual("3 elements\n", run(folder / "consumer_expat"))

    def test_another_major_version_is_refused(self):
        for version in ("0.9", "2.0"):
            with self.subTest(version):
                done = configure(
                    project.scratch(f"find-{version}"), package_dir(installed), WANTED_VERSION=version)
                self.assertNotEqual(0, done.returncode)
                self.assertIn(f'compatible with requested version "{version}"', " ".join(done.stderr.split()))

    def test_a_component_that_is_not_there_is_refused_by_name(self):
        done = configure(
            project.scratch("find-none"), package_dir(installed), WANTED_COMPONENTS="abacus")
        self.assertNotEqual(0, done.returncode)
        self.assertIn('without the component "abacus"', " ".join(done.stderr.split()))


class PkgConfig(unittest.TestCase):
    def flags(self, prefix, *options):
        search = BUILD if prefix == BUILD else the_only(prefix.rglob("qcfpkg.pc")).parent
        environment = {**os.environ, "PKG_CONFIG_PATH": str(search)}
        output = run("pkg-config", *options, "qcfpkg", env=environment)
        return output.replace("\\ ", "\0").split(), BUILD / "xml/qcf/pkglib" if prefix == BUILD else search.parent

    def consume(self, name, prefix, *options):
        flags, libdir = self.flags(prefix, "--cflags", "--libs", *options)
        flags = [flag.replace("\0", " ") for flag in flags]
        if options:
            at = flags.index("-lqcfpkg")
            flags[at:at + 1] = ["-Wl,-Bstatic", "-lqcfpkg", "-Wl,-Bdynamic"]
        program = project.scratch(name) / "consumer"
        source = project.CONSUMER / "consumer.cpp"
        run(CXX, "-std=c++17", *CXX_FLAGS, source, "-o", program, *flags)
        environment = {**os.environ, "LD_LIBRARY_PATH": "" if options else str(libdir)}
        self.assertEqual(EXPECTED, run(program, document, "mimetype", env=environment))

    def test_an_installed_tree_serves_the_shared_library(self):
        self.consume("pc-installed", installed)

    def test_a_moved_tree_serves_the_shared_library(self):
        self.consume("pc-moved", moved)

    def test_a_build_tree_serves_the_shared_library(self):
        self.consume("pc-build", BUILD)

    def test_the_static_library_comes_with_what_it_needs(self):
        self.consume("pc-static", installed, "--static")

    def test_the_version_is_told(self):
        self.assertEqual(["1.1.102"], self.flags(installed, "--modversion")[0])


class InstalledTree(unittest.TestCase):
    def test_every_header_stands_alone(self):
        include = installed / "include" / "qcf"
        headers = sorted(path.relative_to(include) for path in include.rglob("*.h"))
        self.assertIn("package/QCFPackage.h", map(str, headers))
        warnings = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror"]
        for header in headers:
            with self.subTest(str(header)):
                run(CXX, "-std=c++17", *warnings, "-fsyntax-only", f"-I{include}", "-x", "c++", "-",
                    input=f'#include "{header}"\n#include "{header}"\n')

    def test_the_definitions_of_the_templates_stay_at_home(self):
        names = {path.name for path in files(installed)}
        self.assertNotIn("qcf_common_client.cpp", names)
        self.assertFalse([path for path in files(installed) if path.parent.name == "impl"])

    def test_nothing_names_the_folders_that_it_was_built_in(self):
        places = [str(SOURCE).encode(), str(BUILD).encode(), str(installed).encode()]
        for path in files(installed):
            if path.suffix in (".h", ".cmake", ".pc"):
                content = path.read_bytes()
                self.assertFalse([place for place in places if place in content], path)

    def test_the_component_library_holds_shared_objects_only(self):
        prefix = project.scratch("library-only")
        install(prefix, ["library"])
        names = {path.name for path in files(prefix)}
        self.assertIn("libqcfpkg.so.1", names)
        self.assertFalse([name for name in names if ".so." not in name])


@unittest.skipUnless(project.HAS_QSNDHOST, "this build has no programs")
class Programs(unittest.TestCase):
    def test_installed_programs_run_wherever_the_tree_lies(self):
        prefix = project.scratch("programs-first")
        install(prefix, ["library", "programs"])
        place = project.scratch("programs") / "another place"
        prefix.rename(place)
        sound = project.make_sound_document(project.SCRATCH / "sound.qsnd")
        nothing = {"PATH": "/nonexistent"}
        formats = run(place / "bin" / "qsndhost", "formats", cwd="/", env=nothing)
        self.assertIn("qsnd", formats)
        info = run(place / "bin" / "qsndhost", "info", sound, cwd="/", env=nothing)
        self.assertIn("8000", info)
        self.assertIn("4000", info)


if __name__ == "__main__":
    unittest.main()
