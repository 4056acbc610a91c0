"""Builds the wheel of the Python module vxl: python3 -m pip install --no-build-isolation .

CMake builds the extension, libvxunpack and its loadable modules, which the wheel contains. Other libraries
are those of the system.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Extension, find_packages, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        build = pathlib.Path(self.build_temp).resolve()
        staged = build / "staged"
        package = pathlib.Path(self.get_ext_fullpath(ext.name)).resolve().parent
        options = [
            "-DCMAKE_BUILD_TYPE=Release",
            "-DCMAKE_INSTALL_LIBDIR=lib",
            "-DVX_BUILD_TESTS=OFF",
            "-DVX_PYTHON=ON",
            "-DVX_PYTHON_LIBRARIES=.",
            "-DVX_WARNINGS_AS_ERRORS=OFF",
            f"-DPython3_EXECUTABLE={sys.executable}",
            *os.environ.get("CMAKE_ARGS", "").split(),
        ]
        if shutil.which("ninja"):
            options += ["-G", "Ninja"]
        if shutil.which("ccache"):  # which the builds of scripts/build.sh fill
            os.environ.setdefault("CCACHE_BASEDIR", str(ROOT.parent))
            os.environ.update(CCACHE_NOHASHDIR="yes", CCACHE_DEPEND="yes")
            options += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
        subprocess.run(["cmake", "-S", ROOT, "-B", build, *options], check=True)
        targets = ["vxl_python"]
        if "qm_formats_pdal" in (build / "CMakeCache.txt").read_text():
            targets.append("qm_formats_pdal")
        jobs = str(os.cpu_count() or 1)
        subprocess.run(["cmake", "--build", build, "--parallel", jobs, "--target", *targets], check=True)
        for component in ("python", "library"):
            install = ["cmake", "--install", build, "--component", component, "--strip", "--prefix", staged]
            subprocess.run(install, check=True)
        # The extension and the library are in one folder. A wheel has no symbolic links: the library gets the
        # name that it is loaded by.
        for path in staged.rglob("*.so*"):
            if not path.is_symlink():
                folder = package / path.parent.name if "vxunpack-" in path.parent.name else package
                folder.mkdir(parents=True, exist_ok=True)
                shutil.copy2(path, folder / re.sub(r"(\.so\.\d+).*", r"\1", path.name))


version = re.search(r"project\(vxunpack VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())
assert version
setup(
    version=version[1],
    packages=find_packages("python", include=["vxl", "vxl.*"]),
    package_dir={"": "python"},
    package_data={"vxl": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("vxl._vxl", [])],
    cmdclass={"build_ext": CMakeBuild},
)
