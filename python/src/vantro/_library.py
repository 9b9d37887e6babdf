"""The C library: its structures as its headers declare them, and its functions with their types.

The structures are declared a second time here, so the import checks them: the library unpacks known
bytes, and each field must have the expected value.
"""

import ctypes as c
import struct
from pathlib import Path
from typing import Any


class MediaSource(c.Structure):
    _fields_ = [
        ("id", c.c_int32),
        ("uid", c.c_char_p),
        ("name", c.c_char_p),
        ("view_name", c.c_char_p),
        ("type", c.c_int32),
        ("status", c.c_int32),
        ("capabilities", c.c_uint64),
    ]


class MediaNode(c.Structure):
    _fields_ = [
        ("id", c.c_char_p),
        ("name", c.c_char_p),
        ("type", c.c_int32),
        ("count", c.c_int32),
        ("ms_id", c.c_int32),
        ("ms_type", c.c_int32),
    ]


class Metadata(c.Structure):
    _fields_ = [
        ("title", c.c_char_p),
        ("duration", c.c_int32),
        ("artwork", c.c_char_p),
        ("artist", c.c_char_p),
        ("album", c.c_char_p),
        ("genre", c.c_char_p),
        ("year", c.c_char_p),
        ("width", c.c_int32),
        ("height", c.c_int32),
        ("disc", c.c_int32),
        ("track", c.c_int32),
        ("reserved", c.c_char_p),
    ]


class VantroStateInfo(c.Structure):
    _fields_ = [
        ("state", c.c_int32),
        ("rate", c.c_float),
        ("repeat", c.c_int32),
        ("shuffle", c.c_int32),
    ]


class VantroTrksessionInfo(c.Structure):
    _fields_ = [("type", c.c_int32), ("length", c.c_int32), ("tsid", c.c_uint64)]


class VantroTrackInfo(c.Structure):
    _fields_ = [
        ("index", c.c_int32),
        ("tsid", c.c_uint64),
        ("media_node", c.POINTER(MediaNode)),
        ("metadata", c.POINTER(Metadata)),
    ]


class VantroFailure(c.Structure):
    _fields_ = [("reason", c.c_int32), ("number", c.c_int32), ("text", c.c_char * 128)]


class ErrorDetails(c.Structure):
    _fields_ = [("code", c.c_int32)]


class SourceDetails(c.Structure):
    _fields_ = [("type", c.c_int32), ("media_source", c.POINTER(MediaSource))]


class PositionDetails(c.Structure):
    _fields_ = [("position", c.c_int32)]


class VantroEventDetails(c.Union):
    _fields_ = [
        ("error", ErrorDetails),
        ("mediasource", SourceDetails),
        ("state", VantroStateInfo),
        ("trksession", VantroTrksessionInfo),
        ("track", VantroTrackInfo),
        ("status", PositionDetails),
    ]


class VantroEvent(c.Structure):
    _fields_ = [
        ("type", c.c_int32),
        ("repeat", c.c_int32),
        ("shuffle", c.c_int32),
        ("state", c.c_int32),
        ("rate", c.c_float),
        ("details", VantroEventDetails),
        ("dict", c.c_void_p),
        ("object_name", c.c_char_p),
        ("user_data", c.c_void_p),
    ]


class VantroVolume(c.Structure):
    _fields_ = [("level", c.c_int32), ("muted", c.c_int32)]


class VantroStatus(c.Structure):
    _fields_ = [
        ("state", VantroStateInfo),
        ("trksession", VantroTrksessionInfo),
        ("volume", VantroVolume),
        ("position", c.c_int32),
        ("index", c.c_int32),
        ("media_node", c.POINTER(MediaNode)),
        ("metadata", c.POINTER(Metadata)),
    ]


class VantroIdentity(c.Structure):
    _fields_ = [
        ("service_pid", c.c_int32),
        ("pid", c.c_int32),
        ("uid", c.c_uint32),
        ("gid", c.c_uint32),
        ("group_count", c.c_int32),
        ("groups", c.c_uint32 * 8),
        ("version", c.c_char * 32),
        ("capabilities", c.c_char * 256),
    ]


_nodes = c.POINTER(c.POINTER(MediaNode))
_metadata = c.POINTER(c.POINTER(Metadata))
_count = c.POINTER(c.c_int)
_handle = c.c_void_p

# The arguments of each function whose result is an int.
_int_functions: dict[str, list[Any]] = {
    "vantro_open": [_handle, c.c_char_p],
    "vantro_close": [_handle, c.c_char_p],
    "vantro_disconnect": [_handle],
    "vantro_set_reconnect": [_handle, c.c_int],
    "vantro_set_timeout": [_handle, c.c_int],
    "vantro_play": [_handle],
    "vantro_stop": [_handle],
    "vantro_pause": [_handle],
    "vantro_next": [_handle],
    "vantro_previous": [_handle],
    "vantro_seek": [_handle, c.c_int32],
    "vantro_set_playback_rate": [_handle, c.c_float],
    "vantro_shuffle": [_handle, c.c_int32],
    "vantro_repeat": [_handle, c.c_int32],
    "vantro_get_identity": [_handle, c.POINTER(VantroIdentity)],
    "vantro_get_volume": [_handle, c.POINTER(VantroVolume)],
    "vantro_set_volume": [_handle, c.c_int32],
    "vantro_set_muted": [_handle, c.c_int32],
    "vantro_create_trksession": [
        _handle, c.c_int32, c.c_char_p, c.POINTER(c.c_int32), c.c_int32, c.POINTER(c.c_uint64)
    ],
    "vantro_destroy_trksession": [_handle, c.c_uint64],
    "vantro_jump": [_handle, c.c_int32],
    "vantro_get_current_state": [_handle, c.POINTER(c.POINTER(VantroStateInfo))],
    "vantro_get_current_trksession_info": [_handle, c.POINTER(c.POINTER(VantroTrksessionInfo))],
    "vantro_get_current_track_info": [_handle, c.POINTER(c.POINTER(VantroTrackInfo))],
    "vantro_get_current_track_position": [_handle, c.POINTER(c.c_int32)],
    "vantro_get_status": [_handle, c.POINTER(c.POINTER(VantroStatus))],
    "vantro_get_media_sources": [_handle, c.POINTER(c.POINTER(MediaSource)), _count],
    "vantro_cursor_next": [c.c_void_p, _nodes, _metadata],
    "vantro_rescan": [_handle],
    "vantro_rescan_node": [_handle, c.c_int32, c.c_char_p],
    "vantro_save_playlist": [_handle, c.c_char_p, c.c_int32],
    "vantro_delete_playlist": [_handle, c.c_char_p],
    "vantro_list_players": [_handle, c.POINTER(c.POINTER(c.c_char_p))],
    "vantro_get_metadata": [_handle, c.c_int32, c.c_char_p, _metadata],
    "vantro_get_extended_metadata": [
        _handle, c.c_int32, c.c_char_p, c.POINTER(c.c_char_p), c.POINTER(c.c_void_p)
    ],
    "vantro_event_fd": [_handle],
    "vantro_event_wait_for": [_handle, c.c_int],
    "vantro_event_wake": [_handle],
    "vantro_last_failure": [c.POINTER(VantroFailure)],
    "mosk_dict_entry": [
        c.c_void_p, c.c_size_t, c.POINTER(c.c_char_p), c.POINTER(c.c_char_p)
    ],
    "unpack_media_source": [
        c.c_char_p, c.c_int, c.c_int, c.POINTER(c.POINTER(MediaSource))
    ],
    "unpack_media_node": [c.c_char_p, c.c_int, c.c_int, _nodes],
    "unpack_metadata": [c.c_char_p, c.c_int, c.c_int, _metadata],
}

# Result and arguments of the other functions.
_functions: dict[str, tuple[Any, list[Any]]] = {
    "vantro_connect": (_handle, []),
    "vantro_connect_timed": (_handle, [c.c_int]),
    "vantro_event_get": (c.POINTER(VantroEvent), [_handle]),
    "vantro_free_media_sources": (None, [c.POINTER(MediaSource), c.c_int]),
    "vantro_free_media_nodes": (None, [c.POINTER(MediaNode), c.c_int]),
    "vantro_free_metadata": (None, [c.POINTER(Metadata), c.c_int]),
    "vantro_cursor_browse": (
        c.c_void_p, [_handle, c.c_int32, c.c_char_p, c.c_int32, c.c_int]
    ),
    "vantro_cursor_search": (
        c.c_void_p, [_handle, c.c_int32, c.c_char_p, c.c_char_p, c.c_int32, c.c_int]
    ),
    "vantro_cursor_tracks": (c.c_void_p, [_handle, c.c_uint64, c.c_int32, c.c_int]),
    "vantro_cursor_close": (None, [c.c_void_p]),
    "vantro_version": (c.c_char_p, []),
    "vantro_free_track_info": (None, [c.POINTER(VantroTrackInfo)]),
    "vantro_free_status": (None, [c.POINTER(VantroStatus)]),
}


def _load() -> c.CDLL:
    # In the same tree as the package if both were installed together; otherwise from the system.
    soname = "libvantroclient.so.1"
    beside = Path(__file__).resolve().parents[3] / soname
    library = c.CDLL(str(beside) if beside.exists() else soname, use_errno=True)
    for name, arguments in _int_functions.items():
        function = getattr(library, name)
        function.restype, function.argtypes = c.c_int, arguments
    for name, (result, arguments) in _functions.items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library


def check_layouts(library: c.CDLL) -> None:
    """Raises ImportError if the layout of a record in the library differs from this module."""
    numbers: dict[str, list[str]] = {
        "media_source": ["id", "type", "status"],
        "media_node": ["type", "count", "ms_id", "ms_type"],
        "metadata": ["duration", "width", "height", "disc", "track"],
    }
    texts: dict[str, list[str]] = {
        "media_source": ["uid", "name", "view_name"],
        "media_node": ["id", "name"],
        "metadata": ["title", "artwork", "artist", "album", "genre", "year", "reserved"],
    }
    frees = {
        "media_source": library.vantro_free_media_sources,
        "media_node": library.vantro_free_media_nodes,
        "metadata": library.vantro_free_metadata,
    }
    for kind, type_ in (
        ("media_source", MediaSource), ("media_node", MediaNode), ("metadata", Metadata)
    ):
        wanted: dict[str, int | bytes] = {name: i + 1 for i, name in enumerate(numbers[kind])}
        packed = struct.pack(f"<{len(wanted)}i", *wanted.values())
        if kind == "media_source":
            wanted["capabilities"] = 1 << 63
            packed += struct.pack("<Q", 1 << 63)
        for name in texts[kind]:
            wanted[name] = name.encode()
            packed += struct.pack("<i", len(name)) + name.encode()
        records = c.POINTER(type_)()
        # Two records: the place of the second one shows the size of the first one.
        if getattr(library, f"unpack_{kind}")(packed * 2, 2 * len(packed), 2, c.byref(records)):
            raise ImportError(f"libvantroclient does not read a {kind}")
        for field, value in wanted.items():
            if getattr(records[1], field) != value:
                raise ImportError(f"libvantroclient lays {kind}.{field} out in another way")
        frees[kind](records, 2)


library = _load()
check_layouts(library)

# Frees what the library allocated with malloc() for its caller.
free = c.CDLL(None).free
free.restype, free.argtypes = None, [c.c_void_p]


def library_version() -> str:
    """The version of libvantroclient that is loaded."""
    return str(library.vantro_version().decode())
