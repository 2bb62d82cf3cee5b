#!/usr/bin/env python3
"""Holds README.md, CONTRIBUTING.md and docs/*.md to what they say: code compiles, commands run, links lead somewhere.

    pages.py check [--update]            links, languages of blocks, blocks that show a file (written anew with --update)
    pages.py list                        the pages that have commands to run
    pages.py cut FOLDER PROGRAM...       writes FOLDER/fragments.cpp and FOLDER/PROGRAM.cpp for the compiler
    pages.py run PAGE FOLDER BIN...      runs the commands of a page in FOLDER, with the programs of the BIN folders
    pages.py pictures PAGE FOLDER BIN... the same, and what they drew becomes the page's pictures in docs/images

A block begins with ``` and its language. What a test must know about it stands in HTML comments right above:

    <!-- given: KrRenderWindow& window -->    cpp: what a fragment finds around it, as the parameters of a function
    <!-- before: ... -->                      cpp: declarations, sh: commands that come before; not for the reader
    <!-- program: NAME -->                    cpp: a whole program (it has a main), which sh blocks can then call
    <!-- shown from: PATH -->                 any: the block is that file of the source tree
    <!-- file: NAME -->                       any: the block is written to a file of that name, for the commands after it
    <!-- members of: NAME -->                 json: has the members of that file, which a command before it wrote
    <!-- on a screen -->                      sh: each line is a window that stays until it is closed
    <!-- not run: REASON -->                  sh, console, python: cannot run in a test

A fragment is compiled in a function of its own; headers of the classes it names are included by their names. The python
blocks of a page are one program, which runs where the last of them stands, by the interpreter that the environment variable
KR_PYTHON names, if there is one. In a console block lines with "$ " are commands, the others what they print; "..." stands
for anything. Every other sh block must succeed.
"""
import contextlib
import json
import os
import re
import shutil
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LANGUAGES = {"cpp", "python", "sh", "console", "cmake", "xml", "json", "csv", "text"}
SCREEN_SECONDS = "4"


def page_names():
    docs = [name for name in os.listdir(os.path.join(ROOT, "docs")) if name.endswith(".md")]
    return ["README.md", "CONTRIBUTING.md"] + sorted("docs/" + name for name in docs)


def text_of(name):
    with open(os.path.join(ROOT, name), encoding="utf-8") as file:
        return file.read()


class Block:
    """A fenced block: its language, its text, the line at which the text begins, and the comments above it."""

    def __init__(self, page, line, language, text, comments):
        self.page, self.line, self.language, self.text = page, line, language, text
        self.notes = {}
        for comment in comments:
            key, _, value = comment.partition(":")
            self.notes[key.strip()] = value.strip()

    def place(self):
        return "%s:%d" % (self.page, self.line)


def blocks_of(page):
    """All blocks of a page. A comment counts for a block when nothing but comments stands between them."""
    blocks, comments, opened, start = [], [], None, 0
    fence = None
    for number, line in enumerate(text_of(page).split("\n"), 1):
        if fence is not None:
            if line.startswith("```"):
                blocks.append(Block(page, start, fence, "".join(row + "\n" for row in rows), comments))
                comments, fence = [], None
            else:
                rows.append(line)
        elif line.startswith("```"):
            fence, rows, start = line[3:].strip(), [], number + 1
        elif opened is not None or line.startswith("<!--"):
            opened = line if opened is None else opened + "\n" + line
            if "-->" in line:
                comments.append(opened.replace("<!--", "").replace("-->", ""))
                opened = None
        else:
            comments = []
    return blocks


def anchors_of(text):
    """The names that headings get: lower case, words joined by hyphens."""
    headings = re.findall(r"^#+ (.*)$", re.sub(r"^```.*?^```", "", text, flags=re.M | re.S), flags=re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def without_code(text):
    """The text with its code blanked out, line by line."""
    text = re.sub(r"^```.*?^```", lambda code: "\n" * code.group().count("\n"), text, flags=re.M | re.S)
    return re.sub(r"`[^`\n]*`", "", text)


def check_links(page):
    """Links lead to what is installed with the page: other pages, their pictures, and what stands beside the README."""
    failures = []
    for number, line in enumerate(without_code(text_of(page)).split("\n"), 1):
        for target in re.findall(r"\]\(([^)]+)\)", line):
            if re.match(r"\w+://", target):
                continue
            path, _, anchor = target.partition("#")
            path = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
            beside = path in ("README.md", "CHANGELOG.md", "CONTRIBUTING.md", "LICENSE")
            if not os.path.isfile(os.path.join(ROOT, path)):
                failures.append("%s:%d: there is no %s" % (page, number, target))
            elif not beside and not path.startswith("docs/"):
                failures.append("%s:%d: %s is not installed with the page" % (page, number, target))
            elif anchor and anchor not in anchors_of(text_of(path)):
                failures.append("%s:%d: %s has no heading #%s" % (page, number, path, anchor))
    return failures


def update_block(block, text):
    lines = text_of(block.page).split("\n")
    first = block.line - 1
    lines[first:first + block.text.count("\n")] = text.split("\n")[:-1]
    write_if_new(os.path.join(ROOT, block.page), "\n".join(lines))


def check(update):
    failures = []
    for page in page_names():
        failures += check_links(page)
        for block in reversed(blocks_of(page)): # an update moves those after it
            if block.language not in LANGUAGES:
                failures.append("%s: a block in \"%s\": one of %s is wanted"
                                % (block.place(), block.language, ", ".join(sorted(LANGUAGES))))
            source = block.notes.get("shown from")
            if source is None or block.text == text_of(source):
                continue
            if update:
                update_block(block, text_of(source))
            else:
                failures.append("%s: this is not %s as it is now (tests/docs/pages.py check --update)"
                                % (block.place(), source))
    return failures


def header_index():
    """Where the header of each class is: a class that clients use has a header of its name."""
    index = {}
    for library in ("toolkit", "rendCore", "import", "picture", "dataset"):
        for folder, _, names in os.walk(os.path.join(ROOT, library)):
            if "private" not in folder.split(os.sep):
                for name in names:
                    if name.endswith(".h"):
                        index[name[:-2]] = os.path.relpath(os.path.join(folder, name), ROOT)
    return index


def write_if_new(path, text):
    if not os.path.exists(path) or open(path, encoding="utf-8").read() != text:
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)


def cut(folder, programs):
    index = header_index()
    includes = {"#include <boost/make_shared.hpp>", "#include <cstdio>", "#include <memory>", "#include <vector>"}
    functions, found = [], set()
    for page in page_names():
        for block in blocks_of(page):
            if block.language != "cpp" or "shown from" in block.notes:
                continue
            line = "#line %d \"%s\"\n" % (block.line, page)
            if "program" in block.notes:
                found.add(block.notes["program"])
                write_if_new(os.path.join(folder, block.notes["program"] + ".cpp"), line + block.text)
                continue
            around = block.text + block.notes.get("given", "") + block.notes.get("before", "")
            for name in set(re.findall(r"\bKr(?:::)?[A-Z]\w*", around)):
                header = index.get(name.replace("::", ""))
                if header:
                    includes.add("#include <%s>" % header)
            # Lines stay where they are, so that the compiler's messages name those of the page.
            includes.update(re.findall(r"^#include.*$", block.text, flags=re.M))
            body = re.sub(r"^#include.*$", "", block.text, flags=re.M)
            functions.append("namespace %s_%d {\n%s\nint fragment(%s)\n{\n%s%sreturn 0;\n}\n}\n"
                             % (re.sub(r"\W", "_", page), block.line, block.notes.get("before", ""),
                                block.notes.get("given", ""), line, body))
    write_if_new(os.path.join(folder, "fragments.cpp"), "\n".join(sorted(includes)) + "\n\n" + "\n".join(functions))
    if found != set(programs):
        return ["tests/docs/CMakeLists.txt: the programs of the pages are: %s" % " ".join(sorted(found))]
    return []


def members(value):
    """The names of all members, whatever they hold; of a list those of its first element."""
    if isinstance(value, dict):
        return {name: members(inner) for name, inner in value.items()}
    if isinstance(value, list):
        return [members(inner) for inner in value[:1]]
    return None


def shell(command, folder, environment):
    return subprocess.run(["bash", "-e", "-o", "pipefail", "-c", command], cwd=folder, env=environment,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, text=True,
                          errors="replace", check=False)


def run_console(block, folder, environment):
    failures = []
    for part in re.split(r"^\$ ", block.text, flags=re.M)[1:]:
        command, _, expected = part.partition("\n")
        printed = shell(command, folder, environment).stdout
        pattern = re.escape(expected).replace(r"\.\.\.", ".*")
        if not re.fullmatch(pattern, printed, flags=re.S):
            failures.append("%s: $ %s\nprints:\n%sinstead of:\n%s" % (block.place(), command, printed, expected))
    return failures


@contextlib.contextmanager
def virtual_screen():
    """A screen of its own, which finds a free number by itself; its name."""
    reader, writer = os.pipe()
    with subprocess.Popen(["Xvfb", "-displayfd", str(writer), "-screen", "0", "1280x1024x24", "-nolisten", "tcp"],
                          pass_fds=[writer], stderr=subprocess.DEVNULL) as server:
        os.close(writer)
        with os.fdopen(reader) as file:
            number = file.readline().strip()
        try:
            yield ":" + number
        finally:
            server.terminate()


def run_on_screen(block, folder, environment):
    """A window that is still there after some seconds has come up; `timeout` ends with 124 then."""
    if not shutil.which("Xvfb"):
        print("%s: left out, Xvfb is missing" % block.place())
        return []
    environment = {name: value for name, value in environment.items() if name != "KR_WINDOW"}
    failures = []
    with virtual_screen() as environment["DISPLAY"]:
        for line in filter(None, block.text.split("\n")):
            result = shell("timeout -s INT %s %s" % (SCREEN_SECONDS, line), folder, environment)
            if result.returncode != 124:
                failures.append("%s: %s\nended with %d:\n%s" % (block.place(), line, result.returncode, result.stdout))
    return failures


def is_run(block):
    return block.language in ("sh", "console", "python") and "not run" not in block.notes


def has_commands(page):
    return any(map(is_run, blocks_of(page)))


def run_python(blocks, folder, environment):
    """The blocks as one program, whose lines are those of the page, so that messages name them."""
    if "KR_PYTHON" not in environment:
        print("%s: left out, there is no Python module" % blocks[0].place())
        return []
    program = ""
    for block in blocks:
        program += "\n" * (block.line - 1 - program.count("\n")) + block.text
    path = os.path.join(folder, os.path.basename(blocks[0].page) + ".py")
    write_if_new(path, program)
    result = shell('"$KR_PYTHON" %s' % path, folder, environment)
    print(result.stdout, end="")
    return ["%s: the page's program fails:\n%s" % (blocks[0].page, result.stdout)] if result.returncode else []


def run_block(block, folder, environment):
    if "file" in block.notes:
        with open(os.path.join(folder, block.notes["file"]), "w", encoding="utf-8") as file:
            file.write(block.text)
    if "members of" in block.notes:
        with open(os.path.join(folder, block.notes["members of"]), encoding="utf-8") as file:
            written = members(json.load(file))
        if members(json.loads(block.text)) != written:
            return ["%s: %s has the members %s" % (block.place(), block.notes["members of"], json.dumps(written))]
    if not is_run(block) or block.language == "python":
        return []
    if "before" in block.notes:
        result = shell(block.notes["before"], folder, environment)
        if result.returncode != 0:
            return ["%s: what comes before fails:\n%s" % (block.place(), result.stdout)]
    if block.language == "console":
        return run_console(block, folder, environment)
    if "on a screen" in block.notes:
        return run_on_screen(block, folder, environment)
    result = shell(block.text, folder, environment)
    print(result.stdout, end="")
    if result.returncode == 0:
        return []
    return ["%s: this command fails (%d):\n%s" % (block.place(), result.returncode, result.stdout)]


def pictures_of(page):
    return sorted(set(re.findall(r"\]\([^)]*images/([\w.]+)\)", without_code(text_of(page)))))


def take_pictures(page, folder):
    for name in pictures_of(page):
        shutil.copyfile(os.path.join(folder, name), os.path.join(ROOT, "docs/images", name))


def run(page, folder, bins):
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    os.symlink(os.path.join(ROOT, "samples"), os.path.join(folder, "samples"))
    environment = dict(os.environ, PATH=os.pathsep.join([os.path.abspath(path) for path in bins] + [os.environ["PATH"]]))
    failures = []
    python_blocks = [block for block in blocks_of(page) if block.language == "python" and is_run(block)]
    for block in blocks_of(page):
        failures += run_block(block, folder, environment)
        if python_blocks and block.line == python_blocks[-1].line:
            failures += run_python(python_blocks, folder, environment)
    for name in pictures_of(page):
        if not os.path.isfile(os.path.join(folder, name)):
            failures.append("%s: no command of the page draws %s" % (page, name))
    return failures


def main(arguments):
    if arguments[:1] == ["check"]:
        failures = check("--update" in arguments)
    elif arguments == ["list"]:
        failures = []
        print(" ".join(filter(has_commands, page_names())))
    elif arguments[:1] == ["cut"] and len(arguments) > 1:
        failures = cut(arguments[1], arguments[2:])
    elif arguments[:1] in (["run"], ["pictures"]) and len(arguments) > 2:
        failures = run(arguments[1], arguments[2], arguments[3:])
        if arguments[0] == "pictures" and not failures:
            take_pictures(arguments[1], arguments[2])
    else:
        sys.exit(__doc__)
    for failure in failures:
        print(failure, file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
