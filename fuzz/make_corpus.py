#!/usr/bin/env python3
"""Writes the fuzzers' seed corpora into fuzz/corpus/:
  plist            small binary property lists of every type the reader knows,
                   and archives shaped like the program's two files (plistlib);
  parser           short compiler logs as UTF-8 text;
  text_extraction  activity-log-like payloads: text runs between binary fields.
Everything is deterministic, so running it again changes nothing."""
import datetime
import pathlib
import plistlib
import random
import re
import struct
import uuid

corpus = pathlib.Path(__file__).parent / "corpus"


def write_all(folder, samples):
    out = corpus / folder
    out.mkdir(parents=True, exist_ok=True)
    for name, data in samples.items():
        (out / name).write_bytes(data)
    print(f"wrote {len(samples)} files to {out}")


# --- property lists ---------------------------------------------------------

def date(seconds):
    return datetime.datetime(2001, 1, 1) + datetime.timedelta(seconds=seconds)

def diagnostic(i, severity="warning", with_location=True):
    d = {"id": str(uuid.UUID(int=i)).upper(), "severity": severity,
         "message": f"value {i} was never used", "rawText": f"a.swift:{i}:3: {severity}: value",
         "timestamp": date(7.5e8 + i * 0.25)}
    if with_location:
        d.update(filePath="/Users/dev/App/Sources/ContentView.swift", line=i, column=3)
    return d

def session(i, n):
    diags = [diagnostic(i * 100 + k, ["error", "warning", "note"][k % 3], k % 2 == 0) for k in range(n)]
    s = {"id": str(uuid.UUID(int=1000 + i)).upper(), "startedAt": date(7.5e8 + i),
         "diagnostics": diags, "sourceName": "ExampleApp build", "projectName": "ExampleApp",
         "comparison": {"hasBaseline": i > 0, "newDiagnosticIDs": [d["id"] for d in diags[:1]],
                        "fixedDiagnostics": [diagnostic(9000 + i, "error")]}}
    if i % 2:
        s["activityLogPath"] = "/Users/dev/Library/Developer/Xcode/DerivedData/E-abc/Logs/Build/x.xcactivitylog"
    return s

def key(project, line=None):
    sig = {"severity": "warning", "message": "deprecated", "filePath": "/a/b.swift"}
    if line is not None:
        sig["line"] = line
    return {"projectName": project, "signature": sig}

plists = {
    "history-empty": {"version": 1, "savedAt": date(7.6e8), "sessions": []},
    "history-two": {"version": 1, "savedAt": date(7.6e8 + 0.123456), "sessions": [session(0, 3), session(1, 2)]},
    "history-v2": {"version": 2, "savedAt": date(1.5), "sessions": [session(3, 1)]},
    "preferences": {"version": 1, "pinned": [key("App", 12)], "ignored": [key("App"), key("Ünïcødé ✓", -4)]},
    "preferences-empty": {"version": 7, "pinned": [], "ignored": []},
    "scalars": {"t": True, "f": False, "small": 7, "u16": 65535, "u32": 1 << 31, "neg": -5,
                "big": (1 << 63) - 1, "huge": (1 << 64) - 1, "real": 2.5, "date": date(-1e9),
                "data": b"\x00\x01\xff", "ascii": "plain", "utf16": "naïve – ✓"},
    "nested": [[[[["deep"]]]], {"a": [1, 2, {"b": None or "c"}]}],
    "long-strings": {"s" * 20: "x" * 300, "u": "é" * 300},
}
write_all("plist", {f"{name}.bplist": plistlib.dumps(value, fmt=plistlib.FMT_BINARY)
                    for name, value in plists.items()})


# --- parser -----------------------------------------------------------------

SRC = "/Users/dev/Projects/ExampleApp/Sources"

def compile_command(length):
    """A compiler invocation of about `length` characters, mostly paths."""
    parts = ["CompileSwift normal arm64 " + SRC + "/App/ContentView.swift (in target 'ExampleApp')",
             "    cd /Users/dev/Projects/ExampleApp",
             "    /Applications/Xcode.app/Contents/Developer/Toolchains/XcodeDefault.xctoolchain/usr/bin/swift-frontend -frontend -c"]
    n = 0
    while sum(map(len, parts)) < length:
        n += 1
        kind = n % 5
        if kind == 0:
            parts.append(f"-I{SRC}/Module{n}/include")
        elif kind == 1:
            parts.append(f"{SRC}/Feature{n}/View{n}.swift")
        elif kind == 2:
            parts.append(f"-Xcc -iquote -Xcc {SRC}/Legacy{n}/Header{n}.h")
        elif kind == 3:
            parts.append(f"-F/Users/dev/Library/Developer/Xcode/DerivedData/ExampleApp-abc/Build/Products/Debug-iphonesimulator")
        else:
            parts.append(f"-primary-file {SRC}/Model{n}.m -target arm64-apple-ios17.0-simulator")
    return " ".join(parts)

parser_samples = {
    "clang-error": f"{SRC}/App/ContentView.swift:12:5: error: cannot find 'x' in scope\n",
    "warning-no-column": f"{SRC}/Legacy/Model.m:40: warning: unused variable 'count'\n",
    "note-header": f"{SRC}/Legacy/Model.h:7:1: note: previous definition is here\n",
    "every-extension": "".join(f"/p/file.{ext}:{i + 1}:{i}: {sev}: message {i}\n" for i, (ext, sev) in enumerate(
        [(e, ("error", "warning", "note")[k % 3]) for k, e in enumerate(
            "swift m mm h hpp c cc cpp metal storyboard xib intentdefinition xcassets".split())])),
    "not-an-extension": "/p/file.sh:3: error: no\n/p/file.swiftx:3: error: no\n/p/file.o:3:1: warning: no\n",
    "simple-forms": "error: linker command failed with exit code 1 (use -v to see invocation)\n"
                    "warning: Run script build phase 'Lint' will be run during every build\n"
                    "note: Planning build\n  note: Building targets in dependency order\n\terror: tabbed\n",
    "cr-line-endings": f"CompileSwift normal arm64 {SRC}/A.swift\r{SRC}/A.swift:3:1: warning: var never mutated\r"
                       "note: Using codesigning identity override: -\rerror: Command failed\r",
    "crlf-line-endings": f"{SRC}/B.swift:9:2: error: missing return\r\nwarning: deprecated\r\n",
    "long-command-line": compile_command(3000) + f"\r{SRC}/Feature1/View1.swift:1:1: error: after a long line\r",
    "long-line-no-diagnostic": compile_command(3800) + "\r",
    "letter-case": "/A/B.SWIFT:1:2: Error: upper\n/A/B.Swift:3: WARNING: mixed\nNote: simple\nERROR: shout\n",
    "folding": "/a/b.xcaßets:3: error: sharp s\n/a/b.xcaſſets:4: error: long s\n/a/b.intentdeﬁnition:5: warning: fi ligature\n"
               "/a/b.ﬅoryboard:6: note: st ligature\n/a/b.ſwift:2: note: long s\n/a/b.swıft:2: error: dotless i matches nothing\n"
               "Warnıng: dotless\nerroſ: no\n",
    "unicode-space": "\u000berror: after vertical tab\n\u0085warning: after next line\n\u00a0note: after no-break space\n"
                     "x\u2028error: after line separator\nx\u2029warning: after paragraph separator\n\u000cnote: form feed\n"
                     "/a/b.swift:3:\u00a0error:\u3000ideographic space\n",
    "unicode-digits": "/a/b.swift:\u0663\u0664:\u0661: error: arabic-indic digits\n/a/b.swift:\uff11\uff12: warning: fullwidth\n"
                      "/a/b.swift:1\u0662: note: mixed\n",
    "numbers": "/a/b.swift:99999999999999999999999:1: error: too long\n/a/b.swift:0:0: warning: zero\n"
               "/a/b.swift:-3: note: negative\n/a/b.swift:12:34:56: error: three numbers\n",
    "piece-separators": "log\x00/a/b.swift:1:1: error: after nul\x01warning: after soh\x02\x03note: after stx etx\n",
    "messages": "/a/b.swift:1: warning: \t tabs \t\tand   spaces   \n/a/b.swift:2: error:\n/a/b.swift:3: note: error: nested\n"
                "warning: /p/q.swift:3: note: inner\nerror: é\n",
    "paths": "/a b/c d.swift:1: error: spaces\n//double//slash.m:2: warning: x\n/.build/x.cpp:3: note: y\n"
             "x/y.swift:4: error: relative\n/Users/dev/Café/Straße.swift:5: warning: accents\n/r/.swift:6: note: bare\n",
}


# --- text extraction --------------------------------------------------------

rng = random.Random(20260101)

def token(text):
    """A length-prefixed string field in a binary record."""
    data = text.encode() if isinstance(text, str) else text
    return str(len(data)).encode() + b'"' + data

def binary_field():
    kind = rng.randrange(4)
    if kind == 0:
        return b"\0" + struct.pack("<d", rng.uniform(7e8, 8e8)) + b"\0^"
    if kind == 1:
        return str(rng.randrange(1 << 20)).encode() + b"#"
    if kind == 2:
        return bytes([0, 1, 2, 3, 0x7F, 0x1B])[: rng.randrange(1, 6)]
    # Arbitrary bytes, fenced off so they do not spoil the text next to them.
    return b"\0-" + bytes(rng.randrange(256) for _ in range(rng.randrange(1, 6))) + b"\0"

def activity_log(lines, line_end="\r"):
    out = bytearray(b"SLF010#21%IDEActivityLogSection1@2#")
    for line in lines:
        out += binary_field()
        out += token(line + line_end)
        out += binary_field()
    return bytes(out)

build_lines = [
    f"CompileSwift normal arm64 {SRC}/App/ContentView.swift (in target 'ExampleApp' from project 'ExampleApp')",
    f"{SRC}/App/ContentView.swift:12:5: error: cannot find 'x' in scope",
    f"{SRC}/Legacy/Model.m:40:9: warning: unused variable 'count' [-Wunused-variable]",
    "note: Building targets in dependency order",
    "Ld /Users/dev/Library/Developer/Xcode/DerivedData/ExampleApp-abc/Build/Products/Debug/ExampleApp normal",
]

extraction_samples = {
    "short-log": activity_log(build_lines),
    "lf-log": activity_log(build_lines, "\n"),
    "long-command-line": activity_log([compile_command(8000)] + build_lines[1:3]),
    "non-ascii": activity_log(["/Users/dev/Café/Straße.swift:3:1: warning: ß ﬁ ſ ı", "\u00a0note: no-break",
                               "x\u2028error: line separator", "\u0085warning: next line", "/a/b.swift:\u0663: error: digits",
                               "😀 four-byte characters 😀"]),
    "controls-in-text": b"abc\x0bdef\x0cghij\x7fklmn\x1bopqr\tst\ruv\nwx\x00\x01yz12",
    "short-runs": b"\x00a\x00ab\x00abc\x00abcd\x00abcde\x00\xc3\xa9\x00\xc3\xa9\xc3\xa9\x00\xe2\x82\xac\x00\xe2\x82\xac!\x00",
    "invalid-utf8": b"\x00good run\x00bad \xff run\x00cut \xc3\x00overlong \xc0\x80 x\x00surrogate \xed\xa0\x80 x\x00"
                    b"too high \xf4\x90\x80\x80\x00stray \x80 x\x00five \xf8\x88\x80\x80\x80\x00fine again",
    "every-byte": bytes(range(256)) + bytes(range(255, -1, -1)),
    "split-characters": b"\x01".join(("é€😀" * 3).encode()[i:i + 7] for i in range(0, 36, 7)),
    "word-boundaries": b"".join(b"x" * n + bytes([sep]) for n, sep in
                                zip(range(1, 20), [0, 0x7f, 0x0b, 0x1f, 9, 10, 13, 0x80, 0xc3] * 3)),
    "empty": b"",
}
write_all("text_extraction", extraction_samples)

# The parser sees an activity log as the reader extracts it: runs of text,
# one line feed after each.
def extract(data):
    text = bytearray()
    for run in re.split(rb"[\x00-\x08\x0b\x0c\x0e-\x1f\x7f]", data):
        if len(run) >= 4:
            try:
                run.decode("utf-8")
            except UnicodeDecodeError:
                continue
            text += run + b"\n"
    return bytes(text)

parser_samples["extracted-activity-log"] = extract(extraction_samples["short-log"]).decode()
parser_samples["extracted-non-ascii"] = extract(extraction_samples["non-ascii"]).decode()
write_all("parser", {name: text.encode() for name, text in parser_samples.items()})
