"""Which names can stand in C++ source as they are."""

import re

# Members and classes differ in their first letter, so that no field can hide a class. Double and closing
# underscores are left to the language and to hand-written members.
MEMBER_LEGAL = (
    "a string: a small letter, then letters, digits and single underscores between them; no C++ keyword")
CLASS_LEGAL = "a string: a capital letter, then letters, digits and single underscores between them"

_MEMBER = re.compile(r"[a-z](_?[A-Za-z0-9])*")
_CLASS = re.compile(r"[A-Z](_?[A-Za-z0-9])*")

KEYWORDS = frozenset("""
    alignas alignof and and_eq asm auto bitand bitor bool break case catch char char8_t char16_t char32_t
    class compl concept const consteval constexpr constinit const_cast continue co_await co_return co_yield
    decltype default delete do double dynamic_cast else enum explicit export extern false float for friend
    goto if inline int long mutable namespace new noexcept not not_eq nullptr operator or or_eq private
    protected public register reinterpret_cast requires return short signed sizeof static static_assert
    static_cast struct switch template this thread_local throw true try typedef typeid typename union unsigned
    using virtual void volatile wchar_t while xor xor_eq
""".split())

# What records and tables have beside their fields and views.
RESERVED_FIELDS = frozenset("""
    entryKey dataByte0 dataByte0Is dataByte0Del dataByte0DelAll viewT isEq entrySizeBits doInit
    initPresetFields setKeyFromBuffer formEntryForFlush handleInitialized
""".split())
RESERVED_VIEW_FIELDS = RESERVED_FIELDS | {"entry"}
RESERVED_CLASSES = frozenset({"Entry", "EntryKey", "TableDescriptor", "ViewT"})


def is_member(name: str) -> bool:
    return _MEMBER.fullmatch(name) is not None and name not in KEYWORDS


def is_class(name: str) -> bool:
    return _CLASS.fullmatch(name) is not None
