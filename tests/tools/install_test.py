#!/usr/bin/python3
"""What "cmake --install" puts into an empty directory: that the host runs from there, that a driver can be built with it
alone and is loaded, and that nothing in it leads back to the build tree."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import docs_test

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path()

DRIVER = """\
#include "MfdDriver.h"
#include "MfdDriverBase.h"

class Lamp : public MfdDriverBase {
public:
    bool sendFID(const std::string&, const FIDParameterList&) const override { return true; }
};

MFD_DRIVER(Lamp);
"""
DESCRIPTOR = """\
<?xml version="1.0" encoding="UTF-8"?>
<mfDriverModule>
    <module_type name="lamp.so" type="Lamp" version="1.0" description="A lamp" pdlFile="" prefix="LAMP"/>
</mfDriverModule>
"""
WORKPLACE = """\
<?xml version="1.0" encoding="UTF-8"?>
<workplaces>
    <workplace id="0">
        <mainframeDriver driverID="LAMP" driverType="Lamp" version="1.0" workingDirectory="data/LAMP" interfaceType="direct"/>
    </workplace>
</workplaces>
"""
MODULE_HOST = """\
#include <iostream>

#include "IFunctionID.h"
#include "MfDriverManager.h"
#include "sal/LogManager.h"

int main() {
    const sal::LogManager log;
    std::cout << sizeof(MfDriverManager) << std::endl;
}
"""


def run(*words, **options):
    return subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False, **options)


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = Path(tempfile.mkdtemp(prefix="mfd-install-"))
        cls.prefix = cls.directory / "prefix"
        done = run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        assert done.returncode == 0, done.stderr

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.directory)

    def write(self, name, text):
        path = self.directory / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        return path

    def built(self, name, lists):
        """The build directory of a project that has only what is installed."""
        self.write(f"{name}/CMakeLists.txt", f"cmake_minimum_required(VERSION 3.25)\n{lists}")
        place = self.directory / name / "build"
        done = run("cmake", "-S", self.directory / name, "-B", place, f"-DCMAKE_PREFIX_PATH={self.prefix}")
        self.assertEqual(done.returncode, 0, done.stderr)
        done = run("cmake", "--build", place)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return place

    def test_all_of_it_is_there(self):
        for name in (
            "bin/mfhost", "bin/mfddllwrap", "bin/mfdprobe", "bin/mfctl",
            "lib/mfdrivers/panel.so", "lib/mfdrivers/panel.xml", "lib/mfdrivers/sysmon.so", "lib/mfdkit/faulty.so",
            "include/mfd/IInterface.h", "include/mfd/sal/Module.h", "include/mfd/MfdDriver.h", "include/mfd/MfDriverManager.h",
            "share/mfhost/schema/workplace.xsd", "share/man/man1/mfhost.1", "share/man/man5/mfhost-workplace.5",
            "share/bash-completion/completions/mfctl", "share/zsh/site-functions/_mfctl",
            "include/mfd/mfd/Driver.h", "lib/libmfd_kit.a", "lib/cmake/mfd/mfdDriver.cmake",
            "lib/libmfdqueue.so", "lib/libmfdqueue.so.0", "include/mfd/mfdqueue.h", "lib/pkgconfig/mfdqueue.pc",
            "lib/python/mfdqueue.py", "share/doc/mfhost/examples/python/pylamp.py",
            "lib/systemd/system/mfhost@.service", "lib/systemd/system/mfhost-memory@.service",
            "lib/sysusers.d/mfhost.conf", "lib/tmpfiles.d/mfhost.conf",
            "share/doc/mfhost/LICENSE", "share/doc/mfhost/docs/operations.md", "share/doc/mfhost/examples/workplace.xml",
            "share/doc/mfhost/examples/alerts.yml", "share/doc/mfhost/examples/dashboard.json",
        ):
            self.assertTrue((self.prefix / name).is_file(), name)

    def test_page_lists_each_directory(self):
        page = (ROOT / "docs" / "operations.md").read_text()
        page = page[page.index("## Installing without packages") : page.index("## Upgrading")]
        listed = [place.rstrip("/") for place in re.findall(r"`((?:bin|include|lib|share)/[\w./-]*/|bin/|lib/)`", page)]
        for path in self.prefix.rglob("*"):
            if path.is_file():
                name = str(path.relative_to(self.prefix))
                self.assertTrue(any(name.startswith(place + "/") for place in listed), f"{name} is in none of {listed}")

    def test_links_of_its_pages_lead_somewhere(self):
        documents = self.prefix / "share/doc/mfhost"
        for page in documents.rglob("*.md"):
            for target in docs_test.links(page):
                self.assertTrue(target.exists(), f"{page.relative_to(documents)}: {target}")
        empty = [str(place) for place in documents.rglob("*") if place.is_dir() and not any(place.iterdir())]
        self.assertEqual(empty, [])

    def test_unit_names_what_is_installed(self):
        unit = (self.prefix / "lib/systemd/system/mfhost@.service").read_text()
        self.assertIn(f"\nExecStart={self.prefix}/bin/mfhost --config /etc/mfhost/%i.xml ", unit)
        self.assertIn(f" --drivers {self.prefix}/lib/mfdrivers ", unit)
        self.assertNotIn("@bindir@", unit)

    def test_nothing_leads_back_to_the_tree(self):
        for path in self.prefix.rglob("*"):
            if path.is_file() and path.suffix in (".cmake", ".service", ".conf", ".xml", ".h"):
                text = path.read_text()
                self.assertNotIn(str(BUILD), text, path)
                self.assertNotIn(str(ROOT) + "/", text, path)

    def test_host_runs_from_there(self):
        done = run(self.prefix / "bin/mfhost", "--version", cwd="/")
        self.assertRegex(done.stdout, r"^mfhost \d+\.\d+\.\d+\n$")
        done = run(self.prefix / "bin/mfhost", "--drivers", self.prefix / "lib/mfdrivers",
                   "--config", self.prefix / "share/doc/mfhost/examples/workplace.xml", "--check", cwd="/")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_descriptor_of_another_module_is_refused(self):
        self.write("other/Lamp.cpp", DRIVER)
        self.write("other/lamp.xml", DESCRIPTOR.replace("lamp.so", "lampe.so"))
        self.write("other/CMakeLists.txt", """\
cmake_minimum_required(VERSION 3.25)
project(other LANGUAGES CXX)
find_package(mfd REQUIRED)
mfd_add_driver(lamp SOURCES Lamp.cpp)
""")
        # Found in the build tree, too.
        done = run("cmake", "-S", self.directory / "other", "-B", self.directory / "other/build",
                   f"-DCMAKE_PREFIX_PATH={BUILD}")
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertIn("lamp.xml does not describe lamp.so", " ".join(done.stderr.split()))

    def test_driver_is_built_and_loaded(self):
        self.write("lamp/Lamp.cpp", DRIVER)
        page = (ROOT / "docs" / "operations.md").read_text()
        lists = re.search(r"```\ncmake_minimum_required\(VERSION 3.25\)\n(project\(lamp.*?)```", page, re.S)[1]
        self.write("lamp/lamp.xml", DESCRIPTOR)
        place = self.built("lamp", lists)
        config = self.write("workplace.xml", WORKPLACE)
        work = self.directory / "work"
        work.mkdir()
        done = run(self.prefix / "bin/mfhost", "--drivers", self.prefix / "lib/mfdrivers", "--drivers", place,
                   "--config", config, "--workdir", work, "--sandbox", "--no-control", input="quit\n", timeout=300)
        if "--sandbox is not possible here" in done.stderr:
            self.skipTest(done.stderr.strip())
        self.assertIn(f"Loading MF driver {place}/lamp.so (ID: LAMP)...OK\n", done.stdout)
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_queue_library_shows_its_operations_alone(self):
        done = run("nm", "-D", "--defined-only", "--format=posix", self.prefix / "lib/libmfdqueue.so.0")
        shown = sorted(line.split()[0] for line in done.stdout.splitlines())
        self.assertEqual(shown, ["MFDQUEUE_0", *(f"mfdqueue_{name}@@MFDQUEUE_0" for name in (
            "close", "decode", "driver_id", "encode", "error", "log", "open", "receive", "send"))])
        done = run("readelf", "-d", self.prefix / "lib/libmfdqueue.so.0")
        self.assertIn("Library soname: [libmfdqueue.so.0]", done.stdout)

    def test_driver_in_c_is_built(self):
        program = re.search(r"```c\n(.*?)```", (ROOT / "docs" / "foreign-drivers.md").read_text(), re.S)[1]
        source = self.write("c/lamp.c", program)
        environment = {**os.environ, "PKG_CONFIG_PATH": str(self.prefix / "lib/pkgconfig")}
        command = f"cc -Wall -Wextra -Werror {source} $(pkg-config --cflags --libs mfdqueue) -o {source.parent}/lamp"
        done = run("sh", "-c", command, env=environment)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        place = self.built("c", """\
project(c LANGUAGES C CXX)
find_package(mfd REQUIRED)
add_executable(lamp lamp.c)
target_link_libraries(lamp PRIVATE mfd::queue)
""")
        for lamp in (source.parent / "lamp", place / "lamp"):
            done = run(lamp, "LAMP1", env={**os.environ, "MFD_QUEUE_DIR": str(self.directory / "none")})
            self.assertEqual(done.returncode, 1)
            self.assertIn("LAMP1 QUEUE: queue LAMP1_INQ: not opened: ", done.stderr)

    def test_driver_in_python_finds_the_library(self):
        environment = {**os.environ, "PYTHONPATH": str(self.prefix / "lib/python"), "PYTHONDONTWRITEBYTECODE": "1",
                       "MFD_QUEUE_DIR": str(self.directory / "none")}
        lamp = self.prefix / "share/doc/mfhost/examples/python/pylamp.py"
        done = run(lamp, "LAMP1", env=environment)
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertIn("LAMP1 QUEUE: queue LAMP1_INQ: not opened: ", done.stderr)
        done = run(lamp, env=environment)
        self.assertEqual((done.returncode, done.stderr), (2, "usage: pylamp.py DRIVERID\n"))

    def test_host_of_ones_own_is_built(self):
        self.write("own/Own.cpp", MODULE_HOST)
        place = self.built("own", """\
project(own LANGUAGES CXX)
find_package(mfd 0.1 REQUIRED)
add_executable(own Own.cpp)
target_compile_features(own PRIVATE cxx_std_20)
target_link_libraries(own PRIVATE mfd::manager mfd::sal)
""")
        done = run(place / "own")
        self.assertEqual(done.returncode, 0, done.stderr)


if __name__ == "__main__":
    BUILD = Path(sys.argv.pop(1)).resolve()
    unittest.main()
