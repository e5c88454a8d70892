"""What is installed works without the source tree: program, headers, pkg-config, CMake package."""

import os
import re
import subprocess
import tempfile
import unittest

BUILD = os.environ["PKIXCMP_BUILD"]
SOURCE = os.environ["PKIXCMP_SOURCE"]
COMPILER = os.environ["PKIXCMP_CXX"].split()
CONSUMER = r"""
#include "capilite/ASN1Traits.h"
#include "config/Ini.h"
#include "pkixcmp/PKIXCMP_Base.h"
#include <cstdio>
int main() {
    CACMPT_Name name;
    name.fromString(L"CN=Alice, O=Trial", 0, nullptr);
    try {
        Ini("\\local").find_binary("absent");
    } catch (const entry_not_found_exception&) {
        std::puts(name.size() == 2 ? "two" : "other");
    }
}
"""


def run(*args, **kwargs):
    done = subprocess.run(args, capture_output=True, text=True, **kwargs)
    if done.returncode != 0:
        raise AssertionError(f"{args}: {done.stdout}{done.stderr}")
    return done.stdout


class Install(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory(prefix="pkixcmp-test.")
        cls.prefix = os.path.join(cls.folder.name, "prefix")
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)
        cls.env = dict(os.environ, PKIXCMP_HOME=os.path.join(cls.folder.name, "home"))

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def find(self, name):
        for folder, _, files in os.walk(self.prefix):
            if name in files:
                return os.path.join(folder, name)
        raise AssertionError(f"{name} is not installed")

    def test_program(self):
        program = self.find("pkixcmp")
        run(program, "config", "set", r"\local\a\b", "c", env=self.env, cwd="/")
        self.assertEqual(run(program, "config", "get", r"\local\a\b", env=self.env, cwd="/"), "c\n")

    def test_the_program_needs_no_header_that_is_not_installed(self):
        included = set()
        tools = os.path.join(SOURCE, "tools", "pkixcmp")
        for name in os.listdir(tools):
            if name.endswith((".cpp", ".h")):
                with open(os.path.join(tools, name)) as file:
                    included |= set(re.findall(r'^#include "(.*)"', file.read(), re.MULTILINE))
        headers = os.path.dirname(os.path.dirname(self.find("PKIXCMP_Base.h")))
        self.assertEqual([name for name in included if not name.startswith("tools/")
                          and not os.path.exists(os.path.join(headers, name))], [])

    def test_a_program_of_a_user(self):
        libraries = os.path.dirname(self.find("libpkixcmp.so"))
        env = dict(self.env, LD_LIBRARY_PATH=libraries,
                   PKG_CONFIG_PATH=os.path.dirname(self.find("pkixcmp.pc")))
        flags = run("pkg-config", "--define-prefix", "--cflags", "--libs", "pkixcmp",
                    env=env).split()
        source = os.path.join(self.folder.name, "consumer.cpp")
        with open(source, "w") as file:
            file.write(CONSUMER)
        program = os.path.join(self.folder.name, "consumer")
        run(*COMPILER, "-std=c++20", "-Wall", "-Wextra", "-Werror", source, *flags, "-o", program)
        self.assertEqual(run(program, env=env), "two\n")

    def test_the_cmake_package(self):
        project = os.path.join(self.folder.name, "project")
        os.mkdir(project)
        with open(os.path.join(project, "CMakeLists.txt"), "w") as file:
            file.write("cmake_minimum_required(VERSION 3.25)\nproject(user CXX)\n"
                       "find_package(pkixcmp REQUIRED)\n"
                       "get_target_property(at pkixcmp::pkixcmp INTERFACE_INCLUDE_DIRECTORIES)\n"
                       'if(NOT EXISTS "${at}/pkixcmp/PKIXCMP_Base.h")\n'
                       'message(FATAL_ERROR "no headers in ${at}")\nendif()\n')
        run("cmake", "-S", project, "-B", os.path.join(project, "build"),
            f"-DCMAKE_PREFIX_PATH={self.prefix}")


if __name__ == "__main__":
    unittest.main()
