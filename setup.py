"""Builds the extension module _velmor with the project's CMake build.

    /usr/bin/python3 -m pip install --no-build-isolation .

The build folder is build/pip in the source tree (VELMOR_BUILD_DIR chooses
another, for example an existing build/release), kept between installs so
that a second install only relinks; ccache is used when it is installed.
VELMOR_BUILD_JOBS sets the parallel jobs (default 2).
"""

import os
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

SOURCE = os.path.dirname(os.path.abspath(__file__))


class CMakeExtension(Extension):
    def __init__(self, name):
        super().__init__(name, sources=[])


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        folder = os.environ.get("VELMOR_BUILD_DIR", os.path.join(SOURCE, "build", "pip"))
        if not os.path.isabs(folder):
            folder = os.path.join(SOURCE, folder)
        configure = ["cmake", "-S", SOURCE, "-B", folder, "-DVELMOR_BUILD_PYTHON=ON",
                     f"-DPYTHON_EXECUTABLE={sys.executable}"]
        if not os.path.exists(os.path.join(folder, "CMakeCache.txt")):
            configure += ["-DCMAKE_BUILD_TYPE=Release", "-DVELMOR_BUILD_BENCHMARKS=OFF"]
            if shutil.which("ccache"):
                configure += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache",
                              "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
        subprocess.run(configure, check=True)
        jobs = os.environ.get("VELMOR_BUILD_JOBS", "2")
        subprocess.run(["cmake", "--build", folder, "--target", "_velmor", "-j", jobs],
                       check=True)
        built = os.path.join(folder, "python", "velmor")
        module = next(name for name in os.listdir(built)
                      if name.startswith("_velmor") and name.endswith(".so"))
        target = self.get_ext_fullpath(ext.name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copyfile(os.path.join(built, module), target)


setup(ext_modules=[CMakeExtension("velmor._velmor")], cmdclass={"build_ext": CMakeBuild})
