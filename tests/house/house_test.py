"""Whether the tree keeps to its floors. Usage: house_test.py COMPILER_CXX COMPILER_C [FLAG...]"""

import concurrent.futures
import os
import subprocess
import sys

import floors

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
CODE = (".cpp", ".h", ".hpp", ".c", ".py")


def tree(folders, endings):
    """Name -> text of the files below some folders."""
    found = {}
    for folder in folders:
        for path, _, names in os.walk(os.path.join(ROOT, folder)):
            for name in names:
                if name.endswith(endings):
                    full = os.path.join(path, name)
                    with open(full, encoding="utf-8") as file:
                        found[os.path.relpath(full, ROOT)] = file.read()
    return found


def alone(compiler, flags, standard, language, header):
    """The first error of a header compiled with nothing before it, or None."""
    done = subprocess.run(
        [compiler, *flags, f"-std={standard}", "-x", language, "-fsyntax-only", "-Wall", "-Wextra",
         "-Werror", "-I.", "-Iinclude", "-include", header,
         os.devnull], cwd=ROOT, capture_output=True, text=True, check=False)
    if done.returncode == 0:
        return None
    errors = [line for line in done.stderr.splitlines() if " error: " in line]
    return (f"{header}:1: does not compile alone as {standard}: "
            f"{(errors or [done.stderr.strip()])[0]}: a header includes what it names")


def headers_alone(headers, cxx, c, flags):
    runs = [(cxx, flags, "c++17", "c++", header) for header in headers]
    runs += [(c, flags, "c99", "c", header) for header in headers
             if floors.room_of(header) == floors.OPEN and not header.endswith(".hpp")]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return [finding for finding in pool.map(lambda run: alone(*run), runs) if finding]


def main():
    cxx, c, *flags = sys.argv[1:]
    library = tree([*floors.LIBRARY, floors.OPEN], (".cpp", ".h", ".hpp"))
    house = {**library, **tree(["tools"], (".cpp", ".h", ".hpp"))}
    if len(library) < 20:
        print(f"only {len(library)} files of the library below {ROOT}", file=sys.stderr)
        return 2
    findings = [
        *floors.upward_includes(house),
        *floors.mutual_includes(house),
        *floors.externs(library),
        *floors.visibility_pragmas(house),
        *floors.long_files(tree([*floors.LIBRARY, floors.OPEN, "tools", "tests"], CODE)),
        *headers_alone([name for name in sorted(library) if not name.endswith(".cpp")],
                       cxx, c, flags),
    ]
    for finding in findings:
        print(finding)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
