#!/usr/bin/env python3
"""Doxygen input filter for include/zamac.h: the header's plain comments become the
reference. A banner comment (/* ==== Title ==== */) opens a group (one page per
family), a comment before declarations documents each of them, and a comment after a
field documents the field.
The header itself stays plain C."""
import re
import sys

BANNER_ONE = re.compile(r"^/\* =+ (.+?) \*/\s*$")
BANNER_TOP = re.compile(r"^/\* =+\s*$")
BANNER_END = re.compile(r"^ \* =+ \*/\s*$")
DECL = re.compile(r"^(ZamStatus|const ZamLibVersion|static inline|typedef|int|void)\b")
TRAILING = re.compile(r"^(\s+\S.*?[;,{]\s*|\s+\w+\s*=\s*-?\d+,?\s*)/\* ")


def main():
    lines = open(sys.argv[1]).read().split("\n")
    out, group, i = [], 0, 0
    while i < len(lines):
        line = lines[i]
        title = None
        m = BANNER_ONE.match(line)
        if m:
            title = m.group(1)
        elif BANNER_TOP.match(line) and i + 2 < len(lines) and BANNER_END.match(lines[i + 2]):
            title = lines[i + 1].lstrip(" *").strip()
            i += 2
        if title:
            if group:
                out.append("/** @} */")
            group += 1
            out.append("/** @defgroup family%d %s */" % (group, title))
            out.append("/** @{ */")
            i += 1
            continue
        if re.match(r"^\s*/\* ", line) and not TRAILING.match(line):
            # a comment block at the start of a line: documentation of what follows
            # (a "---- section ----" comment only when declarations follow at once)
            start = i
            while "*/" not in lines[i] and i + 1 < len(lines):
                i += 1
            block = lines[start:i + 1]
            j = i + 1
            decls = []
            while j < len(lines) and lines[j].strip() and not lines[j].lstrip().startswith("/*"):
                decls.append(lines[j])
                j += 1
            if line.startswith("/* --") and not decls:
                out.extend(block)
                i += 1
                continue
            block[0] = block[0].replace("/*", "/**", 1)
            # several declarations after one comment share it: each gets a copy
            starts = sum(1 for d in decls if DECL.match(d))
            if starts > 1 and all(not d.startswith("typedef") for d in decls):
                for d in decls:
                    if DECL.match(d):
                        out.extend(block)
                    out.append(d)
                i = j
                continue
            out.extend(block)
            i += 1
            continue
        m = TRAILING.match(line)
        if m:
            line = line.replace("/* ", "/**< ", 1)
        out.append(line)
        i += 1
    if group:
        # close before the closing #endif lines: groups must end inside the file
        out.append("/** @} */")
    sys.stdout.write("\n".join(out))


if __name__ == "__main__":
    main()
