"""The structures of the package against the recorded ABI, and the package against mypy."""

import ctypes
import os
import subprocess
import sys
import xml.etree.ElementTree as xml
from pathlib import Path

import pytest

from vantro import _library

SOURCE = Path(os.environ["VANTRO_SOURCE"])
ABI = xml.parse(SOURCE / "abi/libvantroclient.abi").getroot()
RECORDS = ["MediaSource", "MediaNode", "Metadata", "VantroStateInfo", "VantroTrksessionInfo",
           "VantroTrackInfo", "VantroFailure", "VantroVolume", "VantroStatus", "VantroEvent", "VantroEventDetails"]  # fmt: skip


def members(declaration: xml.Element) -> dict[str, int]:
    found = {}
    for member in declaration.findall("data-member"):
        variable = member.find("var-decl")
        assert variable is not None
        offset = int(member.get("layout-offset-in-bits", "0"))
        found[variable.attrib["name"]] = offset // 8
    return found


@pytest.mark.skipif(ctypes.sizeof(ctypes.c_void_p) != 8, reason="the recorded ABI is of 64 bits")
@pytest.mark.parametrize("name", RECORDS)
def test_a_structure_is_as_recorded(name: str) -> None:
    here = getattr(_library, name)
    found = [
        declaration
        for kind in ("class-decl", "union-decl")
        for declaration in ABI.iter(kind)
        if declaration.get("name") == name and declaration.find("data-member") is not None
    ]
    assert found, name
    assert ctypes.sizeof(here) == int(found[0].attrib["size-in-bits"]) // 8
    assert {field[0]: getattr(here, field[0]).offset for field in here._fields_} == members(
        found[0]
    )
    for inner in found[0].findall("member-type/class-decl"):  # the event's details
        ours = {field: type_ for field, type_ in here._fields_}
        shapes = [
            {field[0]: getattr(type_, field[0]).offset for field in type_._fields_}
            for type_ in ours.values()
        ]
        assert members(inner) in shapes


def test_another_layout_is_noticed(monkeypatch: pytest.MonkeyPatch) -> None:
    class Wrong(ctypes.Structure):
        _fields_ = _library.MediaNode._fields_[1:] + _library.MediaNode._fields_[:1]

    pointer = ctypes.POINTER(ctypes.POINTER(Wrong))
    library = ctypes.CDLL(_library.library._name)
    library.unpack_media_node.argtypes = [ctypes.c_char_p, ctypes.c_int, ctypes.c_int, pointer]
    library.vantro_free_media_nodes.argtypes = [ctypes.POINTER(Wrong), ctypes.c_int]
    monkeypatch.setattr(_library, "MediaNode", Wrong)
    with pytest.raises(ImportError, match="media_node"):
        _library.check_layouts(library)


def test_the_types_are_strict() -> None:
    result = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--no-incremental", "--cache-dir=/dev/null",
         str(SOURCE / "python/src"), str(SOURCE / "examples/now_playing.py")],  # fmt: skip
        capture_output=True,
        text=True,
        env={**os.environ, "MYPYPATH": str(SOURCE / "python/src")},
    )
    assert result.returncode == 0, result.stdout + result.stderr
