"""What goes wrong, each with the library's own sentence."""

from __future__ import annotations


class Error(Exception):
    """Whatever this package refuses, apart from arguments of a wrong value or type (ValueError, TypeError)."""


class RenderError(Error, RuntimeError):
    """A frame cannot be drawn: no OpenGL context, a closed renderer, another thread than the renderer's, a process that
    was forked off one that had a renderer."""


class DatasetError(Error, RuntimeError):
    """A data set cannot be made, read or completed."""


class FormatError(Error, ValueError):
    """A file holds nothing that can be drawn, or is no recipe."""


class MissingFileError(Error, FileNotFoundError):
    """There is no such file."""


class UnknownNameError(Error, KeyError):
    """There is no joint, link or robot of that name. The sentence has names that resemble it."""

    def __str__(self) -> str:
        # A KeyError's own would put the sentence in quotation marks.
        return str(self.args[0]) if self.args else ""
