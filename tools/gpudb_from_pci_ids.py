#!/usr/bin/env python3
"""Proposes GPU database rows for the display devices of NVIDIA, AMD and Intel
that data/gpudb/ does not name yet, from a public PCI id list (pci.ids).

    tools/gpudb_from_pci_ids.py [--pci-ids /usr/share/misc/pci.ids] [--data data/gpudb] [--apply]

Without --apply the rows are printed; with it each vendor file gets (or has
replaced) one section at its end that starts with SECTION_MARK, so a later,
newer list can be imported again the same way.

Which devices are GPUs: the list has no class per device, so the name decides.
  - NVIDIA and AMD: the bracketed marketing name must name a graphics product
    (GeForce, Quadro, Radeon, FirePro, ...), and no word of the whole name may
    name another function (audio, USB, bridge, switch, ...). Names without a
    bracket are chip code names only ("Kaveri"): they are taken when the code
    is one of the maker's graphics chips (NVIDIA_CHIP, AMD_CHIP), so console
    chips, tuners and other silicon stay out; a few old ATI boards named
    plainly ("Rage 128 PRO") are taken by their brand.
  - Intel: the name holds "Graphics" (or a bracketed Arc, Iris, UHD, HD or
    Data Center GPU name), and not "Memory Controller Hub", "Graphics Port"
    or "Audio".
  - Second heads ("(Secondary)"), console chips, engineering samples and
    internal board codes ("PG506-232") are left out.
Naming: the maker's prefix as the existing rows write it ("NVIDIA", "AMD";
"ATI" for Radeon HD 6000 and older, Rage and FireGL parts; "Intel"). A slash
list becomes a family row ("AMD Radeon RX 6800 Series") plus one board row per
subsystem entry whose name contains exactly one product of the list. A part
whose chip code ends in M is mobile, and its name says so ("Mobile" is added
where the marketing name carries no mobile mark). Intel names without a
marketing name become "Intel Integrated Graphics (<platform>)". A device that
the list knows by its chip code only ("GK107M", "Kaveri", "DG2") is named by
maker and chip ("NVIDIA Mobile GPU (GK107M)", "AMD Radeon Graphics (Kaveri)"
for an APU's graphics), never by a guessed product.
Figures: all unknown (0 and -1). d3d_level: the level of the chip's
architecture from ARCH_LEVELS where that is certain, else the level that the
existing rows give for the same chip code when they agree, else 0 (unknown,
as for a device the database lacks).
"""
import argparse
import collections
import csv
import io
import os
import re
import sys

VENDORS = {"10de": "nvidia", "1002": "amd", "8086": "intel"}
SECTION_MARK = "# --- from the PCI ID list"
HEADER = ("device_id,code_name,short_name,full_name,d3d_level,unified_shaders,vertex_units,pixel_units,"
          "texture_units,rop_units,board_power_w")

# Words that name a function other than graphics (whole words, any case).
OTHER_FUNCTION = re.compile(
    r"\b(audio|hdmi|azalia|usb|bridge|smbus|ide|sata|ahci|raid|lpc|isa|ethernet|network|modem|firewire|"
    r"switch|nvswitch|upstream|downstream|root|port|coprocessor|cryptographic|iommu|i2c|spi|uart|gpio|"
    r"thermal|sensor|pmu|psp|secondary|xbox|playstation|xenos|hbiu|daio|storage|memory controller|host|"
    r"nvlink|dma|sound|ac'?97|pcie dummy|vga compatible|function)\b", re.I)
NVIDIA_PRODUCT = re.compile(r"^(GeForce|Geforce|Quadro|Tesla|TITAN|RTX|GRID|NVS|CMP|ION|Riva|Vanta|A\d|H\d|L\d|T\d|"
                            r"P\d|B\d|PG\d|GH\d|GB\d|HGX|DRIVE|Jetson)", re.I)
AMD_PRODUCT = re.compile(r"^(Radeon|Mobility|FirePro|FireGL|FireMV|FireStream|Rage|3D Rage|Mach|Instinct|"
                         r"All-In-Wonder|AMD Radeon|AMD Custom GPU|ATI Radeon|ATI FirePro|Graphics Ultra|"
                         r"Graphics Xpression|Video Xpression|WinTurbo)", re.I)
NVIDIA_CHIP = re.compile(r"^(NV\d+|G\d+|GT\d+|G[FKMPV]\d+|TU\d+|GA\d+|AD\d+|GH\d+|GB\d+)[A-Za-z0-9]*$")
# Chip codes of AMD's graphics architectures (consoles' chips and TV tuners have others).
AMD_CHIP = re.compile(r"^(R[1-7]\d\d|RV[1-7]\d\d|RS[1-8]\d\d|Cypress|Hemlock|Juniper|Redwood|Cedar|Barts|Turks|Caicos|"
                      r"Cayman|Sumo|SuperSumo|Wrestler|Llano|Trinity|Richland|Devastator|Scrapper|Hainan|Tahiti|"
                      r"Pitcairn|Cape Verde|Oland|Wimbledon|Neptune|Venus|Mars|Sun|Bonaire|Hawaii|Grenada|Tonga|"
                      r"Fiji|Ellesmere|Baffin|Lexa|Polaris ?\d+|Kabini|Temash|Mullins|Beema|Kaveri|Godavari|Carrizo|"
                      r"Stoney|Vega ?\d+|Navi ?\d+|Raven|Picasso|Renoir|Cezanne|Lucienne|Barcelo|Rembrandt|Raphael|"
                      r"Phoenix\d?|Mendocino|HawkPoint\d?|Krackan\d?|Strix|Granite Ridge|Arcturus|Aldebaran|Aqua Vanjaram)")
AMD_APU = re.compile(r"^(Sumo|SuperSumo|Wrestler|Llano|Trinity|Richland|Devastator|Scrapper|Kabini|Temash|Mullins|"
                     r"Beema|Kaveri|Godavari|Carrizo|Stoney|Raven|Picasso|Renoir|Cezanne|Lucienne|Barcelo|"
                     r"Rembrandt|Raphael|Phoenix\d?|Mendocino|HawkPoint\d?|Krackan\d?|Strix|Granite Ridge)")
AMD_PLAIN = re.compile(r"^(Rage|3D Rage|Rage 128|Mach ?64|All-In-Wonder)\b", re.I)
INTEL_BRACKET = re.compile(r"^(Arc|Iris|UHD|HD Graphics|Data Center GPU|Graphics|Intel Graphics|Intel Arc|Intel Xe|"
                           r"Server GPU)", re.I)
# Parts that never reached users: engineering samples and the maker's internal board codes.
UNRELEASED = re.compile(r"Engineering Sample|Prototype|\bPG\d{3}\b|\bSKU ?\d", re.I)
INTEL_NOT = re.compile(r"memory controller hub|graphics port|audio", re.I)
MOBILE_MARK = re.compile(r"\b(Mobile|Mobility|Laptop|Max-Q|Go|Notebook|Embedded|MX\d+)\b|\bGo\d|\b[A-Z]?\d{3,4}[A-Z]*M\b|\bM\d+", re.I)
SHARED_TAIL = {"Graphics", "Ada", "Generation", "Blackwell"}
QUALIFIERS = {"mobile", "max-q", "laptop", "gpu", "series"}

# Direct3D feature level x 10 by chip code, for architectures where it is
# certain; the first pattern that matches decides.
ARCH_LEVELS = {
    "10de": [(r"^NV1\d", 70), (r"^NV2\d", 81), (r"^NV3\d", 90), (r"^(NV4\d|G7\d|C51|C61|C67|C68|C73|MCP6)", 93),
             (r"^(G8\d|G9\d|GT20\d|MCP7|ION)", 100), (r"^(GT21\d|MCP89)", 101), (r"^(GF|GK|GM)\d", 110),
             (r"^(GP|GV)\d", 121), (r"^TU11[67]", 121), (r"^TU10\d", 122), (r"^(GA|AD|GB|GH)\d", 122)],
    "1002": [(r"^(R1\d\d|RV1\d\d|RS[12]\d\d)", 70), (r"^(R2\d\d|RV2[5-8]\d)", 81),
             (r"^(R3\d\d|R4\d\d|RV3\d\d|RV4\d\d|RS4\d\d|RS6\d\d|RC4\d\d)", 90), (r"^(R5\d\d|RV5\d\d)", 93),
             (r"^(R600|RV610|RV630)", 100), (r"^(RV6[2-9]\d|RV7\d\d|R7\d\d|RS780|RS880)", 101),
             (r"^(Cypress|Hemlock|Juniper|Redwood|Cedar|Barts|Turks|Caicos|Cayman|Antilles|Park|Madison|"
              r"Manhattan|Broadway|Seymour|Whistler|Blackcomb|Robson|Vancouver)", 110),
             (r"^(Thames|Granville|Sumo|SuperSumo|Wrestler|Llano|Trinity|Richland|Devastator|Scrapper)", 110),
             (r"^(Hainan|Tahiti|Pitcairn|Cape Verde|Oland|Hainan|Curacao|New Zealand|Mars|Venus|Heathrow|Chelsea|"
              r"Wimbledon|Neptune|Sun|Exo|Opal|Jet|Tropo|Saturn|Topaz|Meso|Litho|Banks)", 111),
             (r"^(Bonaire|Hawaii|Grenada|Tonga|Amethyst|Antigua|Fiji|Ellesmere|Baffin|Lexa|Polaris|Vesuvius|"
              r"Iceland|Strato|Emerald|Tobago|Kabini|Temash|Mullins|Beema|Kaveri|Godavari|Carrizo|Stoney)", 120),
             (r"^(Vega|Navi 1\d|Navi1\d|Raven|Picasso|Renoir|Cezanne|Lucienne|Barcelo|Dali|Pollock)", 121),
             (r"^(Navi 2\d|Navi2\d|Navi 3\d|Navi3\d|Navi 4\d|Rembrandt|Raphael|Phoenix|Mendocino|VanGogh|Van Gogh|"
              r"Strix|Krackan|HawkPoint|Granite Ridge|Sephiroth)", 122)],
    "8086": [(r"8291[05]|9[14]5G|945GSE|E7221|82946|Q96[35]|82G965|G33|Q33|Q35", 90),
             (r"G35|GM965|GME965|4 Series", 100),
             (r"Sandy ?Bridge|Ironlake|Clarkdale|Arrandale", 101), (r"Ivy ?Bridge|Valleyview|Bay ?Trail", 110),
             (r"Haswell|Broadwell|Crystal ?Well|4th Gen", 111),
             (r"Skylake|Kaby ?Lake|KabyLake|Coffee ?Lake|CoffeeLake|Comet ?Lake|CometLake|Whiskey ?Lake|Amber ?Lake|"
              r"Apollo ?Lake|Gemini ?Lake|Ice ?Lake|Tiger ?Lake|TigerLake|Rocket ?Lake|Alder ?Lake|AlderLake|"
              r"Raptor ?Lake|Jasper ?Lake|JasperLake|Elkhart ?Lake|DG1|Lakefield", 121),
             (r"DG2|Alchemist|Battlemage|BMG|Meteor ?Lake|Lunar ?Lake|Arrow ?Lake|Panther ?Lake|Wildcat ?Lake", 122)],
}


def parse_pci_ids(lines):
    """{vendor: [(device, name, [(subvendor, subdevice, name)])]} for the vendors of VENDORS."""
    out = collections.OrderedDict((v, []) for v in VENDORS)
    vendor = None
    for raw in lines:
        line = raw.rstrip("\n")
        if not line.strip() or line.startswith("#"):
            continue
        if line.startswith("C "):
            break  # the device classes follow the vendors
        if not line.startswith("\t"):
            vendor = line[:4].lower()
            continue
        if vendor not in out:
            continue
        if line.startswith("\t\t"):
            m = re.match(r"\t\t([0-9a-fA-F]{4}) ([0-9a-fA-F]{4})\s+(.*)$", line)
            if m and out[vendor]:
                out[vendor][-1][2].append((m.group(1).lower(), m.group(2).lower(), m.group(3).strip()))
            continue
        m = re.match(r"\t([0-9a-fA-F]{4})\s+(.*)$", line)
        if m:
            out[vendor].append((m.group(1).lower(), m.group(2).strip(), []))
    return out


def merge(old, new):
    """The devices of two lists; the newer list's entry of a device replaces the older one's, keeping the
    older subsystems when the newer entry lists none."""
    if old is None:
        return new
    out = collections.OrderedDict()
    for vendor in VENDORS:
        devices = {d: (d, n, s) for d, n, s in old.get(vendor, [])}
        for d, n, s in new.get(vendor, []):
            devices[d] = (d, n, s or devices.get(d, (d, n, []))[2])
        out[vendor] = [devices[d] for d in sorted(devices)]
    return out


def split_name(name):
    """('GA102', 'GeForce RTX 3090') from 'GA102 [GeForce RTX 3090]'; bracket None when there is none."""
    m = re.match(r"^(.*?)\s*\[(.*)\]\s*(.*)$", name)
    if not m:
        return name.strip(), None
    return m.group(1).strip(), (m.group(2) + (" " + m.group(3) if m.group(3) else "")).strip()


def select(vendor, name):
    """(code name, marketing text) for a GPU, or None with the device left out."""
    code, product = split_name(name)
    if UNRELEASED.search(name):
        return None
    if vendor == "8086":
        # "Ivy Bridge" is a processor, not a bridge.
        if INTEL_NOT.search(name) or OTHER_FUNCTION.search(re.sub(r"Graphics Controller|(Ivy|Sandy) Bridge", "", name, flags=re.I)):
            return None
        if product and INTEL_BRACKET.match(product):
            return code, product
        if re.match(r"^(HD|UHD|Iris|Iris Pro|Iris Plus|Iris Xe)\b.*Graphics", name):
            return "", name
        if re.match(r"^Graphics Media Accelerator \d+", name):
            return "", re.match(r"^Graphics Media Accelerator \d+", name).group(0)
        if not product and re.match(r"^([A-Za-z]+ ?Lake-?\w* GT\d\w*|DG\d(-\w+)?)$", name):
            return name, None
        m = re.match(r"^(.*?)\s*(Chipset |System and |Express |Processor Family |\(CGC\) )*(AGP )?"
                     r"(Integrated Graphics|Graphics Controller|Graphics Device|Graphics Processor|"
                     r"Graphics Accelerator|Graphics & Display|Graphics and Video|Graphics\b)", name)
        if m and m.group(1):
            return m.group(1), None
        return None
    if OTHER_FUNCTION.search(name):
        return None
    if vendor == "10de":
        if product and NVIDIA_PRODUCT.match(product):
            return code, product
        # A chip code alone, or with the maker's internal board code ("GK107M [N14P-GS]").
        if (not product or re.match(r"^[A-Z]\d+[A-Z]?-[A-Z0-9]+$", product)) and NVIDIA_CHIP.match(code):
            return code, None
        return None
    if product and AMD_PRODUCT.match(product):
        return code, product
    if not product and AMD_PLAIN.match(name):
        return "", name
    # A chip code alone, or with its other code ("Ellesmere [Polaris10]").
    if (not product or re.match(r"^Polaris ?\d+$", product)) and AMD_CHIP.match(code):
        return code, None
    return None


def _shape(tok):
    """'9' for a model number ("7600", "7700S"), 'a9' for a lettered one ("X550", "R7")."""
    return re.sub(r"a$", "", re.sub(r"9+", "9", re.sub(r"[A-Za-z]+", "a", re.sub(r"\d", "9", tok))))


def expand(text):
    """The products of a slash list: 'Radeon RX 6800/6800 XT / 6900 XT' gives three names."""
    parts = [p.strip() for p in re.split(r"\s*/\s*", text) if p.strip()]
    first = parts[0].split()
    out = [" ".join(first)]
    for p in parts[1:]:
        # Each item continues the one before it: "R7 250/350" is the R7 350.
        first = out[-1].split()
        toks = p.split()
        if all(t.lower() in QUALIFIERS for t in toks):
            base = list(first)
            while base and base[-1].lower() in QUALIFIERS:
                base.pop()
            out.append(" ".join(base + toks))
            continue
        at = None
        for i in range(len(first) - 1, -1, -1):
            if first[i].lower() == toks[0].lower():
                at = i
                break
        if at is None and re.search(r"\d", toks[0]):
            for i in range(len(first) - 1, -1, -1):
                if _shape(first[i]) == _shape(toks[0]):
                    at = i
                    break
        if at is None:
            at = 1 if len(first) > 1 else len(first)
        out.append(" ".join(first[:at] + toks))
    # A tail the list writes once applies to every item: "RTX 2000 / 2000E Ada Generation".
    tail = []
    for w in reversed(out[-1].split()[1:]):
        if w not in SHARED_TAIL:
            break
        tail.insert(0, w)
    if tail:
        out = [o if o.endswith(" ".join(tail)) else o + " " + " ".join(tail) for o in out]
    seen = []
    for o in out:
        if o not in seen:
            seen.append(o)
    return seen


def maker_prefix(vendor, product):
    if vendor == "10de":
        return "" if product.startswith("NVIDIA") else "NVIDIA "
    if vendor == "8086":
        return "" if product.startswith("Intel") else "Intel "
    if product.startswith(("AMD ", "ATI ")):
        return ""
    old = re.match(r"^(Mobility |Radeon (\d{4,5}|X\d|HD [2-6]\d{3}|IGP|Xpress)|Rage|3D Rage|Mach|All-In-Wonder|FireGL|"
                   r"FireMV|Graphics Ultra|Graphics Xpression|Video Xpression|WinTurbo|Radeon (LE|SDR|DDR|VE|Mobility)\b)",
                   product, re.I)
    return "ATI " if old else "AMD "


# Intel numbers its graphics devices by generation: the platform of a device
# whose list entry gives none.
INTEL_PLATFORM = {"01": "Sandy Bridge", "04": "Haswell", "0a": "Haswell", "0d": "Haswell", "16": "Broadwell",
                  "19": "Skylake", "59": "Kaby Lake", "5a": "Apollo Lake", "3e": "Coffee Lake", "8a": "Ice Lake",
                  "9b": "Comet Lake", "46": "Alder Lake", "a7": "Raptor Lake"}


def is_mobile_code(code):
    return bool(re.match(r"^[A-Z]+\d+[A-Za-z]*M$", code))


def level_of(vendor, code, known):
    for pattern, level in ARCH_LEVELS[vendor]:
        if code and re.search(pattern, code):
            return level
    words = code.split()
    for n in range(len(words), 0, -1):
        k = " ".join(words[:n])
        if k in known and len(known[k]) == 1:
            return next(iter(known[k]))
    return 0


def short_of(vendor, product):
    s = re.sub(r"^(NVIDIA |AMD |ATI |Intel )", "", product)
    s = re.sub(r"^(GeForce |Radeon |Quadro )", "", s) if vendor != "8086" else s
    s = re.sub(r" Graphics\b", "", s)
    return s[:40]


def _words(s):
    return re.sub(r"[^a-z0-9+-]+", " ", s.lower()).split()


def board_product(products, subname):
    """The one product of a list that a subsystem's name names, or None."""
    sub = _words(subname)
    best, best_len, tie = None, 0, False
    for p in products:
        core = _words(re.sub(r"^(Radeon|GeForce|Quadro|Arc|Intel|AMD|NVIDIA)\s+", "", p))
        while core and core[-1] in QUALIFIERS and len(core) > 1:
            core = core[:-1]
        if not core or not any(re.search(r"\d", w) for w in core):
            continue
        for i in range(len(sub) - len(core) + 1):
            if sub[i:i + len(core)] == core:
                # A longer product of the list ("6800 xt" against "6800") wins; the next word of the
                # subsystem must not continue a model number this list does not know.
                if len(core) > best_len:
                    best, best_len, tie = p, len(core), False
                elif len(core) == best_len and p != best:
                    tie = True
                break
    return None if tie else best


def rows_for(vendor, device, name, subs, known):
    """CSV rows (lists of 11 fields) proposed for one device of the list, or []."""
    sel = select(vendor, name)
    if sel is None:
        return []
    code, product = sel
    did = "0x" + device.upper()
    if vendor == "8086" and not code:
        code = INTEL_PLATFORM.get(device[:2], "")
    # A brand without a model ("Intel Graphics", "Radeon Graphics") says which chip it is.
    if product and code and not re.search(r"\d", product) and re.search(r"Graphics$", product):
        product += f" ({code.split('/')[0].strip()})"
    if product is None and vendor != "8086" or vendor == "8086" and product is None and re.match(r"^DG\d", code):
        # Only the chip is known: its maker and chip, never a guessed product.
        if vendor == "10de":
            full = f"NVIDIA {'Mobile GPU' if is_mobile_code(code) else 'GPU'} ({code})"
        elif vendor == "8086":
            full = f"Intel Graphics ({code})"
        elif AMD_APU.match(code):
            full = f"AMD Radeon Graphics ({code})"
        else:
            full = f"{'ATI' if re.match(r'^(R|RV|RS)[1-7]', code) else 'AMD'} GPU ({code})"
        chip = code.split("/")[0].strip()
        return [[did, chip, "", full, str(level_of(vendor, chip, known)), "0", "0", "0", "-1", "-1", "0"]]
    if vendor == "8086" and product is None:
        platform = re.sub(r"\s*/\s*", ", ", code).strip(" ,")
        full = f"Intel Integrated Graphics ({platform})"
        level = level_of(vendor, code, known)
        return [[did, code.split("/")[0].strip()[:40] or "Intel", "Graphics", full, str(level), "0", "0", "0", "-1", "-1", "0"]]
    chip = (code or product.split()[0]).split("/")[0].strip()
    chip = re.sub(r"\s*\(.*\)$", "", chip)
    level = level_of(vendor, chip, known)
    products = expand(product) if "/" in product else [product]
    if vendor == "10de" and is_mobile_code(code):
        products = [p if MOBILE_MARK.search(p) else p + " Mobile" for p in products]
    # "RTX 4060 Max-Q / Mobile" is one laptop part in two power configurations.
    bases = {" ".join(w for w in p.split() if w.lower() not in QUALIFIERS) for p in products}
    if len(products) > 1 and len(bases) == 1 and all(re.search(r"\b(Mobile|Max-Q|Laptop)\b", p) for p in products):
        products = [bases.pop() + " Mobile"]
    figures = ["0", "0", "0", "-1", "-1", "0"]
    if len(products) == 1:
        full = maker_prefix(vendor, products[0]) + products[0]
        return [[did, chip, short_of(vendor, products[0]), full, str(level)] + figures]
    first = products[0]
    base = first.split()
    while base and base[-1].lower() in ("series", "gpu"):
        base.pop()
    family = maker_prefix(vendor, first) + " ".join(base) + " Series"
    rows = [[did, chip, short_of(vendor, " ".join(base)) + " Series", family, str(level)] + figures]
    taken = set()
    for sv, sd, subname in subs:
        p = board_product(products, subname)
        if p is None or (sv, sd) in taken:
            continue
        taken.add((sv, sd))
        rows.append([f"{did}:{sv.upper()}:{sd.upper()}", chip, short_of(vendor, p), maker_prefix(vendor, p) + p,
                     str(level)] + figures)
    return rows


def read_csv_part(path):
    """(lines before the importer's section, {device ids named}, {code: {levels}})."""
    with open(path, encoding="utf-8") as f:
        lines = f.read().splitlines()
    keep = []
    for line in lines:
        if line.startswith(SECTION_MARK):
            break
        keep.append(line)
    ids, levels = set(), collections.defaultdict(set)
    for line in keep:
        if not line.strip() or line.lstrip().startswith("#") or line.startswith("device_id"):
            continue
        row = next(csv.reader([line]))
        key = row[0].strip().lower()
        if key.startswith("0x") and ":" not in key:
            ids.add(int(key, 16))
        if len(row) > 4 and row[4].strip().isdigit() and int(row[4]) > 0:
            levels[row[1].strip()].add(int(row[4]))
    return keep, ids, levels


def propose(pci, data_dir):
    """{vendor: (kept lines, proposed rows)}."""
    result = {}
    for vendor, devices in pci.items():
        path = os.path.join(data_dir, VENDORS[vendor] + ".csv")
        keep, ids, levels = read_csv_part(path)
        rows = []
        for device, name, subs in devices:
            if int(device, 16) in ids:
                continue
            rows += rows_for(vendor, device, name, subs, levels)
        result[vendor] = (keep, rows)
    return result


def to_csv(rows):
    buf = io.StringIO()
    w = csv.writer(buf, lineterminator="\n")
    for r in rows:
        w.writerow(r)
    return buf.getvalue()


def list_date(lines):
    for line in lines:
        m = re.match(r"#\s*Date:\s*(\S+)", line)
        if m:
            return m.group(1)
        m = re.search(r"\(version (\d{4})\.(\d\d)\.(\d\d)\)", line)
        if m:
            return "-".join(m.groups())
    return "unknown date"


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--pci-ids", action="append",
                    help="a PCI id list; later lists replace earlier entries of the same device "
                         "(default: /usr/share/misc/pci.ids, then data/gpudb/pci_ids_newer.txt)")
    ap.add_argument("--data", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "gpudb"))
    ap.add_argument("--apply", action="store_true", help="write the rows into the vendor files")
    a = ap.parse_args(argv)
    lists = a.pci_ids or ["/usr/share/misc/pci.ids", os.path.join(a.data, "pci_ids_newer.txt")]
    pci, dates = None, []
    for path in lists:
        try:
            with open(path, encoding="utf-8", errors="replace") as f:
                lines = f.read().splitlines()
        except OSError as e:
            print(f"gpudb_from_pci_ids: cannot read {path}: {e}", file=sys.stderr)
            return 1
        pci = merge(pci, parse_pci_ids(lines))
        dates.append(f"{os.path.basename(path)} of {list_date(lines)}")
    date = ", ".join(dates)
    for vendor, (keep, rows) in propose(pci, a.data).items():
        path = os.path.join(a.data, VENDORS[vendor] + ".csv")
        devices = len({r[0].split(":")[0] for r in rows})
        print(f"{VENDORS[vendor]}: {devices} devices, {len(rows)} rows proposed", file=sys.stderr)
        if not a.apply:
            sys.stdout.write(to_csv(rows))
            continue
        while keep and not keep[-1].strip():
            keep.pop()
        text = "\n".join(keep) + "\n"
        if rows:
            text += (f"{SECTION_MARK} ({date}; tools/gpudb_from_pci_ids.py): names only, figures unknown;\n"
                     "# --- rows below are rewritten by the importer, add hand-checked rows above this section\n")
            text += to_csv(rows)
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
