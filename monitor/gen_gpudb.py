#!/usr/bin/env python3
"""Generates the GPU database tables (C++) from the CSV files of data/gpudb/.

    gen_gpudb.py --out gpu_db_tables.cpp --nvidia nvidia.csv --amd amd.csv
                 --s3 s3.csv --intel intel.csv --boards maker_boards.csv

Each vendor file has the columns
    device_id,code_name,short_name,full_name,d3d_level,unified_shaders,
    vertex_units,pixel_units,texture_units,rop_units,board_power_w
device_id is hexadecimal ("0x13C0"), or "never" for a row that documents a
part sharing another row's ID and is therefore never matched. Where one
device ID covers several boards, the row of the plain ID names them as one
family ("AMD Radeon RX 6800 Series") and rows written "0x73BF:1002:0E3A"
(device:subsystem vendor:subsystem device, from public PCI id lists) name
the boards that are known by their subsystem; such a row needs the plain
row of its device. A full name holds one product, never a list with '/'. Lines starting
with '#' are comments. Unknown counts are -1 (texture and ROP units) or 0
(shaders, board power), as the table layout says.

The maker's board file has the columns subsystem_device_id,model_name.

Any malformed row stops the build with the file and line named, so a typo in
the data cannot silently turn into a wrong name on a user's screen.
"""
import argparse
import csv
import sys

VENDOR_COLUMNS = ["device_id", "code_name", "short_name", "full_name", "d3d_level", "unified_shaders",
                  "vertex_units", "pixel_units", "texture_units", "rop_units", "board_power_w"]
D3D_LEVELS = {0, 60, 70, 80, 81, 90, 91, 92, 93, 100, 101, 110, 111, 120, 121, 122}
NEVER = 0xFFFFFFFF


class DataError(Exception):
    pass


def rows_of(path):
    with open(path, newline="", encoding="utf-8") as f:
        lines = [(n, l) for n, l in enumerate(f, 1) if l.strip() and not l.lstrip().startswith("#")]
    if not lines:
        raise DataError(f"{path}: no rows")
    reader = csv.reader([l for _, l in lines])
    header = next(reader)
    for (n, _), row in zip(lines[1:], reader):
        yield header, n, [c.strip() for c in row]


def parse_int(path, n, name, text, lo, hi):
    try:
        v = int(text, 0)
    except ValueError:
        raise DataError(f"{path}:{n}: {name} '{text}' is not a number")
    if not lo <= v <= hi:
        raise DataError(f"{path}:{n}: {name} {v} outside {lo}..{hi}")
    return v


def read_vendor(path, one_name=True):
    rows = []
    seen = {}
    for header, n, row in rows_of(path):
        if header != VENDOR_COLUMNS:
            raise DataError(f"{path}: header must be {','.join(VENDOR_COLUMNS)}")
        if len(row) != len(VENDOR_COLUMNS):
            raise DataError(f"{path}:{n}: {len(row)} columns, expected {len(VENDOR_COLUMNS)}")
        key = row[0].lower()
        if not key.startswith(("0x", "never")):
            raise DataError(f"{path}:{n}: device_id must be written in hexadecimal (0x...)")
        sub = 0
        if ":" in key:
            parts = key.split(":")
            if len(parts) != 3:
                raise DataError(f"{path}:{n}: a board row is written 0xDEVICE:VENDOR:SUBDEVICE")
            sv = parse_int(path, n, "subsystem vendor", "0x" + parts[1], 1, 0xFFFF)
            sd = parse_int(path, n, "subsystem device", "0x" + parts[2], 0, 0xFFFF)
            sub = (sv << 16) | sd
            key = parts[0]
        rid = NEVER if key == "never" else parse_int(path, n, "device_id", key, 1, 0xFFFF)
        if rid != NEVER:
            if (rid, sub) in seen:
                raise DataError(f"{path}:{n}: device 0x{rid:04X} already on line {seen[(rid, sub)]}; "
                                "only the first row of an ID is ever matched (mark the other 'never')")
            seen[(rid, sub)] = n
        code, short, full = row[1], row[2], row[3]
        if not code or not full:
            raise DataError(f"{path}:{n}: code name and full name are required")
        d3d = parse_int(path, n, "d3d_level", row[4], 0, 122)
        if d3d not in D3D_LEVELS:
            raise DataError(f"{path}:{n}: d3d_level {d3d} is not a Direct3D feature level x 10")
        unified = parse_int(path, n, "unified_shaders", row[5], 0, 100000)
        vertex = parse_int(path, n, "vertex_units", row[6], 0, 64)
        pixel = parse_int(path, n, "pixel_units", row[7], 0, 256)
        if unified and (vertex or pixel):
            raise DataError(f"{path}:{n}: a unified-shader part has no separate vertex/pixel units")
        tmu = parse_int(path, n, "texture_units", row[8], -1, 4096)
        rop = parse_int(path, n, "rop_units", row[9], -1, 1024)
        power = parse_int(path, n, "board_power_w", row[10], 0, 2000)
        if one_name and "/" in full:
            raise DataError(f"{path}:{n}: full name '{full}' lists several products; name the family and add "
                            "board rows by subsystem")
        rows.append((rid, sub, code, short, full, d3d, unified, vertex, pixel, tmu, rop, power))
    for (rid, sub), n in seen.items():
        if sub and (rid, 0) not in seen:
            raise DataError(f"{path}:{n}: board row of device 0x{rid:04X} without the device's own row")
    return rows


def read_boards(path):
    rows = []
    seen = set()
    for header, n, row in rows_of(path):
        if header != ["subsystem_device_id", "model_name"]:
            raise DataError(f"{path}: header must be subsystem_device_id,model_name")
        if len(row) != 2 or not row[1]:
            raise DataError(f"{path}:{n}: expected subsystem_device_id,model_name")
        sid = parse_int(path, n, "subsystem_device_id", row[0], 1, 0xFFFF)
        if sid in seen:
            raise DataError(f"{path}:{n}: subsystem device 0x{sid:04X} listed twice")
        seen.add(sid)
        rows.append((sid, row[1]))
    return rows


def c_string(s):
    out = ['"']
    for ch in s:
        if ch in '"\\':
            out.append("\\" + ch)
        elif 32 <= ord(ch) < 127:
            out.append(ch)
        else:
            raise DataError(f"non-ASCII character in {s!r}")
    out.append('"')
    return "".join(out)


def emit_table(name, rows):
    lines = [f"const GpuDatabaseEntry {name}[] = {{"]
    for r in rows:
        rid, sub, code, short, full, d3d, unified, vertex, pixel, tmu, rop, power = r
        lines.append(f"    {{0x{rid:X}u, 0x{sub:X}u, {c_string(code)}, {c_string(short)}, {c_string(full)}, "
                     f"{d3d}, {unified}, {vertex}, {pixel}, {tmu}, {rop}, {power}}},")
    lines.append('    {0, 0, "", "", "", 0, 0, 0, 0, 0, 0, 0},')
    lines.append("};")
    lines.append(f"const int {name}Rows = {len(rows)};")
    return "\n".join(lines)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--out", required=True)
    for v in ("nvidia", "amd", "s3", "intel", "boards"):
        ap.add_argument("--" + v, required=True)
    a = ap.parse_args()
    try:
        tables = [("kNvidia", read_vendor(a.nvidia)), ("kAmd", read_vendor(a.amd)),
                  ("kS3", read_vendor(a.s3, one_name=False)), ("kIntel", read_vendor(a.intel))]
        boards = read_boards(a.boards)
        parts = ["// Generated by monitor/gen_gpudb.py from data/gpudb/. Do not edit.",
                 '#include "monitor/gpu_db.h"', "", "namespace ProbeGPU {", "namespace gpudb {", ""]
        for name, rows in tables:
            parts.append(emit_table(name, rows))
            parts.append("")
        parts.append("const BoardModel kMakerBoards[] = {")
        for sid, model in boards:
            parts.append(f"    {{0x{sid:04X}u, {c_string(model)}}},")
        parts.append("    {0, nullptr},")
        parts.append("};")
        parts.append(f"const int kMakerBoardCount = {len(boards)};")
        parts += ["", "}  // namespace gpudb", "}  // namespace ProbeGPU", ""]
    except DataError as e:
        print(f"gen_gpudb: error: {e}", file=sys.stderr)
        return 1
    text = "\n".join(parts)
    try:
        with open(a.out, encoding="utf-8") as f:
            if f.read() == text:
                return 0
    except OSError:
        pass
    with open(a.out, "w", encoding="utf-8") as f:
        f.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
