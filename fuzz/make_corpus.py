#!/usr/bin/env python3
"""Writes the fuzzer's seed corpus (fuzz/corpus/plist) with Python's plistlib:
small binary property lists of every type the reader knows, and archives
shaped like the program's two files."""
import datetime
import pathlib
import plistlib
import uuid

out = pathlib.Path(__file__).parent / "corpus" / "plist"
out.mkdir(parents=True, exist_ok=True)

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

samples = {
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
for name, value in samples.items():
    (out / f"{name}.bplist").write_bytes(plistlib.dumps(value, fmt=plistlib.FMT_BINARY))
print(f"wrote {len(samples)} files to {out}")
