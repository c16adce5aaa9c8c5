"""Where the members of a record lie: in order, each at a multiple of its own size, as C++ lays them out.

Records go to shared memory as they are, so padding is spelled out as members and zeroed like all others.
"""

from dataclasses import dataclass
from typing import ClassVar, Protocol, Sequence

VIEW_NUMBER_BYTES = 4


class Sized(Protocol):
    storage_bytes: int


@dataclass(frozen=True)
class Pad:
    is_pad: ClassVar[bool] = True
    name: str
    bytes: int


@dataclass(frozen=True)
class Key:
    parts: tuple[Sized | Pad, ...]
    size: int
    align: int


@dataclass(frozen=True)
class Record:
    key: Key
    view_padding: int
    tail_padding: int
    size: int


def gap(offset: int, align: int) -> int:
    return -offset % align


def key(members: Sequence[Sized]) -> Key:
    parts: list[Sized | Pad] = []
    offset = pads = 0
    align = max(member.storage_bytes for member in members)
    for member in [*members, None]:
        padding = gap(offset, member.storage_bytes if member else align)
        if padding:
            parts.append(Pad(f"pad{pads}", padding))
            pads += 1
        offset += padding
        if member:
            parts.append(member)
            offset += member.storage_bytes
    return Key(tuple(parts), offset, align)


def record(members: Sequence[Sized], data_bytes: int, has_views: bool) -> Record:
    """A key, the data bytes, and the number of the view where there are any."""
    key_part = key(members)
    size = key_part.size + data_bytes
    view_padding = gap(size, VIEW_NUMBER_BYTES) if has_views else 0
    size += view_padding + (VIEW_NUMBER_BYTES if has_views else 0)
    tail = gap(size, max(key_part.align, VIEW_NUMBER_BYTES if has_views else 1))
    return Record(key_part, view_padding, tail, size + tail)
