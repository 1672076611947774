"""The Debian packages of the library, from a build of their own: what lintian says, what is in them, what they ask for."""

import os
import re
import shutil
import unittest

import project

TOOLS = ("lintian", "dpkg-deb", "dpkg-shlibdeps", "cpack")
MISSING = [tool for tool in TOOLS if shutil.which(tool) is None]
VERSION = os.environ["QCF_VERSION"]
SONAME = VERSION.split(".")[0]


def build():
    """The packages by name. The programs would take minutes to build: scripts/package.sh has lintian look at them."""
    folder = project.scratch("debian")
    project.run(project.CMAKE, "-S", project.SOURCE, "-B", folder, "-G", "Ninja", f"-DCMAKE_CXX_COMPILER={project.CXX}",
                "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_INSTALL_PREFIX=/usr", "-DCMAKE_SKIP_INSTALL_RPATH=ON",
                "-DQCF_DEBIAN=ON", "-DBUILD_TESTING=OFF", "-DQCF_BUILD_EXAMPLES=OFF", "-DQCF_BUILD_TOOLS=OFF",
                "-DQCF_BUILD_IMPORTER=OFF")
    project.run(project.CMAKE, "--build", folder, "--target", "all")
    project.run("cpack", cwd=folder)
    return {path.name.split("_")[0]: path for path in sorted((folder / "packages").glob("*.deb"))}


@unittest.skipUnless(os.environ["QCF_PLAIN_BUILD"] == "1", "packages are made of plain builds")
@unittest.skipIf(MISSING, f"missing: {', '.join(MISSING)}")
class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.packages = build()
        cls.library = cls.packages[f"libqcfpkg{SONAME}"]
        cls.development = cls.packages["libqcfpkg-dev"]

    def files(self, package):
        """Mode and owner by path."""
        listing = project.run("dpkg-deb", "-c", package)
        return {fields[5]: (fields[0], fields[1]) for fields in (line.split(maxsplit=5) for line in listing.splitlines())}

    def field(self, package, name):
        return project.run("dpkg-deb", "-f", package, name).strip()

    def test_there_is_one_for_those_who_run_and_one_for_those_who_build(self):
        self.assertEqual({f"libqcfpkg{SONAME}", "libqcfpkg-dev"}, set(self.packages))

    def test_lintian_finds_no_error(self):
        for package in self.packages.values():
            done = project.attempt("lintian", "--allow-root", "--fail-on", "error", package)
            self.assertEqual(0, done.returncode, done.stdout + done.stderr)

    def test_everything_belongs_to_root_and_only_root_may_write_it(self):
        for package in self.packages.values():
            for path, (mode, owner) in self.files(package).items():
                self.assertEqual("root/root", owner, path)
                if not mode.startswith("l"):
                    self.assertEqual("-", mode[5], path)
                    self.assertEqual("-", mode[8], path)

    def test_the_library_comes_under_its_soname_and_without_headers(self):
        paths = [path for path in self.files(self.library) if "/lib/" in path]
        names = {path.rsplit("/", 1)[1].split(" ")[0] for path in paths} - {""}
        self.assertEqual({f"{name}.so.{suffix}" for name in ("libqcfpkg", "libqcfpkg_expat") for suffix in (SONAME, VERSION)},
                         names)
        self.assertFalse([path for path in self.files(self.library) if "/include/" in path])

    def test_the_development_package_has_what_find_package_and_pkg_config_look_for(self):
        paths = " ".join(self.files(self.development))
        for wanted in ("include/qcf/package/QCFPackage.h", "include/qcf/package/expat/ExpatXMLParser.h", "/libqcfpkg.a ",
                       "/libqcfpkg.so ", "cmake/qcfpkg/qcfpkgConfig.cmake", "pkgconfig/qcfpkg.pc"):
            self.assertIn(wanted, paths + " ")

    def test_what_a_client_needs_beside_it_is_asked_for(self):
        wanted = self.field(self.development, "Depends")
        for package in (f"libqcfpkg{SONAME} (= {VERSION}-1)", "zlib1g-dev", "libboost-dev", "libexpat1-dev"):
            self.assertIn(package, wanted)
        self.assertRegex(self.field(self.library, "Depends"), r"libc6 \(>= .*libexpat1.*zlib1g")

    def test_each_tells_in_one_line_what_it_is(self):
        summaries = {name: self.field(package, "Description").splitlines()[0] for name, package in self.packages.items()}
        self.assertEqual(len(summaries), len(set(summaries.values())), summaries)
        for summary in summaries.values():
            self.assertTrue(re.fullmatch(r"reads, creates and updates .{10,60}", summary), summary)

    def test_programs_find_the_library_by_the_loaders_cache_and_nothing_names_this_machine(self):
        folder = project.scratch("debian-unpacked")
        for package in self.packages.values():
            project.run("dpkg-deb", "-x", package, folder)
        for path in sorted(folder.rglob("*")):
            if path.is_symlink() or not path.is_file() or path.suffix == ".a":
                continue
            content = path.read_bytes()
            self.assertNotIn(str(project.SOURCE).encode(), content, path)
            if path.name.startswith("libqcfpkg") and ".so" in path.name:
                self.assertNotIn("RUNPATH", project.run("readelf", "-d", path))


if __name__ == "__main__":
    unittest.main()
