"""Holds the documents against the code: check_docs.py CHECK ARGUMENTS, CHECK being one of the functions below."""
import json
import re
import shlex
import subprocess
import sys
import tempfile
from pathlib import Path


def blocks(document, language=""):
    return re.findall(rf"^```{language}\n(.*?)^```$", Path(document).read_text(), re.M | re.S)


def readme_example(readme, source):
    """The C block of the README is the example, but for its first comment."""
    program = Path(source).read_text().partition("\n")[2]
    shown = blocks(readme, "c")
    assert shown == [program], f"README shows:\n{shown}\nand {source} holds:\n{program}"


def named_tests_exist(document, ctest, build):
    """Every `room.Suite.Name` in backticks is a test, or all the tests that begin with it and a slash."""
    named = re.findall(r"`((?:\w+\.)+\w+)`", Path(document).read_text())
    named = {name for name in named if name.count(".") >= 2 or name.startswith(("docs.", "consumers."))}
    listing = subprocess.run([ctest, "--test-dir", build, "--show-only=json-v1"], check=True, capture_output=True)
    known = {test["name"] for test in json.loads(listing.stdout)["tests"]}
    unknown = {name for name in named if name not in known and not any(k.startswith(name + "/") for k in known)}
    assert named and not unknown, f"no such tests: {sorted(unknown)}" if unknown else "no test is named"


def pieces(text):
    """The bytes after each "> " or "< ", continued on lines that begin with two blanks; what stands behind is a note."""
    result = []
    for line in text.splitlines():
        match = re.fullmatch(r"([<> ]) ((?:[0-9A-F]{2} )*[0-9A-F]{2})(?:  .*)?", line)
        if match and match[1] != " ":
            result.append((match[1], match[2]))
        elif match and result:
            result[-1] = (result[-1][0], result[-1][1] + " " + match[2])
    return result


def protocol_sessions(document, jvctl):
    """Each block that begins with a call of jvctl shows the bytes that the call traces."""
    sessions = [block for block in blocks(document) if block.startswith("$ jvctl ")]
    for session in sessions:
        command = shlex.split(session.partition("\n")[0])[2:]
        run = subprocess.run([jvctl, *command], capture_output=True, text=True)
        assert run.returncode == 0, run
        assert pieces(session) == pieces(run.stderr), f"shown:\n{pieces(session)}\ntraced:\n{pieces(run.stderr)}"
    assert len(sessions) == 3, f"{len(sessions)} sessions"


def script_lines(header, jvctl):
    """The header of the simulation lists the script lines as the tool's help does."""
    text = subprocess.run([jvctl, "--help"], check=True, capture_output=True, text=True).stdout
    listed = re.search(r"^Script lines of a simulated board:\n((?:.+\n)+)", text, re.M)[1]
    comment = "".join(f" * {line}\n" for line in listed.splitlines())
    assert listed.count("\n") > 20 and comment in Path(header).read_text(), f"jvctl says:\n{comment}"


def layers(script, source):
    """Includes point down, and the script that says so names each planted line that does not."""
    def run(folder):
        result = subprocess.run([script, folder], capture_output=True, text=True)
        return result.returncode, result.stdout.splitlines()

    assert run(source)[0] == 0, run(source)[1]
    planted = {
        "base/low.h": ("#include \"jorvet/core/jorvet.h\"", "base/ includes core/"),
        "com/side.h": ("#include \"jorvet/protocol/crc.h\"", "com/ includes protocol/"),
        "core/under.cpp": ("#include <jorvet/compat/faults.h>", "core/ includes compat/"),
        "ports/first.h": ("#include \"jorvet/ports/second.h\"", "circle"),
        "ports/second.h": ("#include \"jorvet/ports/first.h\"", "circle"),
        "com/asks.cpp": ("#if defined(_WIN32)", "_WIN32"),
    }
    with tempfile.TemporaryDirectory() as folder:
        for name, (line, _) in planted.items():
            file = Path(folder, "jorvet", name)
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(f"// planted\n{line}\n")
        status, complaints = run(folder)
    missed = [name for name, (_, rule) in planted.items()
              if not any(c.startswith(f"jorvet/{name}:2: ") and rule in c for c in complaints)]
    assert status == 1 and not missed and len(complaints) == len(planted), f"missed {missed}, said {complaints}"


globals()[sys.argv[1]](*sys.argv[2:])
