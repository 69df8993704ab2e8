"""The module beside what it belongs to: the header's prototypes, the version, the package that pip makes."""
import ctypes
import pathlib
import re
import shutil
import subprocess
import sys
from typing import Any, Dict, List

import callorv
import pytest
from callorv import _native

from conftest import LIBRARY, World, serving, write_config

ROOT = pathlib.Path(__file__).resolve().parents[3]
HEADER = (ROOT / "include" / "callorv" / "callorv.h").read_text("ascii")
BUFFERS = {"int *": "c_int", "double *": "c_double", "char *": "c_char", "unsigned char *": "c_ubyte", "size_t *": "c_size_t"}


def allowed(declared: str) -> List[Any]:
    """The types that a parameter or result of the header may have in Python."""
    kind = re.sub(r"\s*\*", " *", re.sub(r"\bconst\b", "", declared)).strip()
    kind = re.sub(r"\s+", " ", kind)
    if kind in ("CMsg *", "CallOrv_Call *"):
        return [ctypes.c_void_p]
    if kind == "CallOrv_Error *":
        return [ctypes.POINTER(_native.ErrorRecord)]
    if kind == "char *" and "const" in declared:
        return [ctypes.c_char_p]
    if kind in BUFFERS:    # or their address
        return [ctypes.POINTER(getattr(ctypes, BUFFERS[kind])), ctypes.c_void_p]
    plain: Dict[str, List[Any]] = {"int": [ctypes.c_int], "double": [ctypes.c_double], "size_t": [ctypes.c_size_t], "void": [None]}
    return plain[kind]


def test_prototypes_are_those_of_the_header() -> None:
    text = re.sub(r"/\*.*?\*/", "", HEADER, flags=re.DOTALL)
    declared = {name: (result, arguments) for result, name, arguments in
                re.findall(r"CALLORV_API\s+([\w\s*]+?)\s*\b((?:MSG|CallOrv)_\w+)\(([^)]*)\);", text)}
    assert len(declared) == HEADER.count("CALLORV_API ")
    for name, (result, *arguments) in {**_native.WAITING, **_native.QUICK}.items():
        wanted_result, wanted = declared[name]
        assert result in allowed(wanted_result), name
        parameters = [re.sub(r"\w+$", "", parameter) for parameter in wanted.split(",")]
        assert len(arguments) == len(parameters), name
        for argument, parameter in zip(arguments, parameters):
            assert argument in allowed(parameter), (name, parameter)


def test_the_record_and_the_types_are_those_of_the_header() -> None:
    assert ctypes.sizeof(_native.ErrorRecord) == 1032
    assert (_native.ErrorRecord.iCode.offset, _native.ErrorRecord.szText.offset, _native.ErrorRecord.iRefSvcNum.offset) == (0, 4, 1028)
    for name in ("STRING", "INTEGER", "DOUBLE", "BOOL", "DATE", "SUBMSG"):
        assert f"  MSG_TYPE_{name} = {getattr(_native, name)}" in HEADER
    codes = (ROOT / "include/callorv/error/error.h").read_text("ascii")
    for name in ("NO_DATA", "MEMORY", "TAG_TYPE", "UNDEF_TAG", "UNDEF_MSG", "INDEX", "INPUT", "NOT_INIT"):
        assert f"  MSG_{name} = {getattr(_native, name)}," in codes


def test_the_version_is_the_library_s() -> None:
    version = re.search(r'CALLORV_VERSION "(.*)"', (ROOT / "include/callorv/version.h").read_text("ascii"))
    assert version is not None and callorv.__version__ == version[1]


@pytest.mark.parametrize("document, said", [
    ("README.md", "101.25\n"),
    ("docs/python.md", "101.25 48200\n" + 2 * "90001 300\n90002 50\n90003 0\n" + "4017 order 90001 is filled already\n")])
def test_the_lines_of_the_documents(world: World, tmp_path: pathlib.Path, document: str, said: str) -> None:
    snippet = subprocess.run([ROOT / "scripts" / "snippet", ROOT / document, "python"], check=True, capture_output=True, text=True)
    data = ROOT / "examples" / "data"
    shutil.copy(data / "dictionary.xml", tmp_path / "client.xml")
    shutil.copy(world.config.parent / "user.key", tmp_path)
    with serving("--dictionary", data / "dictionary.xml", "--replies", data / "replies") as port:
        write_config(tmp_path, port, "shop.cfg")
        environment = {"PYTHONPATH": str(ROOT / "bindings" / "python"), "LD_LIBRARY_PATH": str(LIBRARY.parent)}
        ran = subprocess.run([sys.executable, "-c", snippet.stdout], cwd=tmp_path, env=environment, capture_output=True,
                             text=True)
    assert (ran.returncode, ran.stdout, ran.stderr) == (0, said, "")


def test_pip_installs_it(tmp_path: pathlib.Path) -> None:
    source = tmp_path / "python"
    subprocess.run(["cp", "-r", ROOT / "bindings" / "python", source], check=True)    # building leaves files beside the sources
    subprocess.run([sys.executable, "-m", "pip", "install", "--quiet", "--no-build-isolation", "--no-deps", "--no-index",
                    "--disable-pip-version-check", "--target", tmp_path / "site", source], check=True)
    assert (tmp_path / "site" / "callorv" / "py.typed").exists()
    assert (tmp_path / "site" / f"callorv-{callorv.__version__}.dist-info").is_dir()
    ran = subprocess.run([sys.executable, "-c", "import callorv; print(callorv.__file__)"], cwd=tmp_path / "site",
                         env={"PYTHONPATH": str(tmp_path / "site")}, capture_output=True, text=True, check=True)
    assert ran.stdout == f"{tmp_path}/site/callorv/__init__.py\n"
