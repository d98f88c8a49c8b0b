"""The PCI id list importer picks GPUs only, names them as the database does, and its rows pass the generator."""
import os
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
TOOL = os.path.join(HERE, "gpudb_from_pci_ids.py")
GEN = os.path.join(HERE, "..", "monitor", "gen_gpudb.py")
sys.path.insert(0, HERE)
import gpudb_from_pci_ids as imp  # noqa: E402  (the tool beside this test)

HEADER = imp.HEADER + "\n"
# A cut of the list's layout: vendors, devices (one tab), subsystems (two tabs), then the classes.
PCI_IDS = """\
# List of PCI ID's
#	Date:    2023-04-10 20:08:02
1002  Advanced Micro Devices, Inc. [AMD/ATI]
	1309  Kaveri [Radeon R6/R7 Graphics]
	1314  Wrestler HDMI Audio
	15bf  Phoenix1
	1607  Arden
	4d53  Theater 550 PRO PCIe
	67cf  Ellesmere [Polaris10]
	4170  RV350 [Radeon 9550/9600/X1050 Series] (Secondary)
	68e0  Park [Mobility Radeon HD 5430/5450/5470]
	73bf  Navi 21 [Radeon RX 6800/6800 XT / 6900 XT]
		1002 0e3a  Radeon RX 6900 XT
		1da2 e437  Radeon RX 6800
		1da2 438e  Radeon RX 6800 XT Nitro+
		1462 3950  Radeon RX 6800 XT Gaming X Trio
		1043 04f2  Navi 21 board
	744c  Navi 31 [Radeon RX 7900 XT/7900 XTX]
	7480  Navi 33 [Radeon RX 7700S/7600/7600S/7600M XT/PRO W7600]
	ab30  Navi 31 HDMI/DP Audio
10de  NVIDIA Corporation
	1f9d  TU117M [GeForce GTX 1650 Mobile / Max-Q]
	1e87  TU104 [GeForce RTX 2080 Rev. A]
	1e2e  TU106 [GeForce RTX 2060 12GB Engineering Sample]
	1ad8  TU102 USB 3.1 Host Controller
	10f0  GP104 High Definition Audio Controller
	1c8c  GP107M [GeForce GTX 1050 Ti Mobile]
	1c8d  GP107M [GeForce GTX 1050 / 1050 Ti Mobile]
		1028 087c  GeForce GTX 1050 Mobile
		1043 15a7  GeForce GTX 1050 Ti Mobile
	1e04  TU102 [GeForce RTX 2080 Ti Rev. A]
	2191  TU116M [GeForce GTX 1660 Ti Mobile]
	1140  GF117M [GeForce 610M/710M/810M/820M / GT 620M/625M/630M/720M]
		17aa 3901  GeForce 820M
		1025 0773  GeForce 710M
		1043 14c7  GeForce GT 720M
	0047  NV40 [GeForce 6800 GS]
	0fe8  GK107M [N14P-GS]
	06ff  G98 [HICx16 + Graphics]
	0028  NV5 [Riva TNT2 / TNT2 Pro]
	05e7  GT200GL [Tesla C1060 / M1060]
8086  Intel Corporation
	2e32  4 Series Chipset Integrated Graphics Controller
	2e33  4 Series Chipset Integrated Graphics Controller
	2e30  4 Series Chipset DRAM Controller
	7120  82810 GMCH (Graphics Memory Controller Hub)
	4680  Alder Lake-S GT1 [UHD Graphics 770]
	5921  HD Graphics 620
	015a  Xeon E3-1200 v2/Ivy Bridge Graphics Controller
	46a1  UHD Graphics
	56b1  DG2 [Arc Pro A40/A50]
	2a41  Mobile 4 Series Chipset PCI Express Graphics Port
	4f90  DG2 Audio Controller
	4f80  DG2
	0104  Xeon E3-1200/2nd Generation Core Processor Family DRAM Controller
1234  Somebody Else
	5921  Radeon Lookalike [Radeon RX 6900 XT]
C 00  Unclassified device
	00  Non-VGA unclassified device
"""

EXISTING = {
    "nvidia": HEADER + "0x1E04,TU102,RTX 2080 Ti,NVIDIA GeForce RTX 2080 Ti,122,4352,0,0,272,88,250\n"
                       "0x1E07,TU102,RTX 2080 Ti,NVIDIA GeForce RTX 2080 Ti,122,4352,0,0,272,88,250\n",
    "amd": HEADER + "# --- hand-written\n0x744C,Navi 31,RX 7900,AMD Radeon RX 7900 Series,122,0,0,0,-1,-1,0\n",
    "intel": HEADER + "0x2E22,Gen4.5,GMA X4500,Intel GMA X4500 (G45),100,10,0,0,-1,-1,0\n",
}


def read(path):
    with open(path) as f:
        return f.read()


def proposals():
    pci = imp.parse_pci_ids(PCI_IDS.splitlines())
    with tempfile.TemporaryDirectory() as d:
        for name, text in EXISTING.items():
            with open(os.path.join(d, name + ".csv"), "w") as f:
                f.write(text)
        got = imp.propose(pci, d)
    return {imp.VENDORS[v]: {r[0]: r for r in rows} for v, (_, rows) in got.items()}


class Selection(unittest.TestCase):
    def test_only_graphics_devices_of_the_three_makers(self):
        p = proposals()
        ids = {v: set(rows) for v, rows in p.items()}
        # Audio, USB, DRAM controllers, a graphics port, a memory controller hub, a second head and a
        # bare code name are not GPUs; an engineering sample never reached users.
        for v, gone in (("amd", {"0x1314", "0xAB30", "0x4170", "0x1607", "0x4D53"}),
                        ("nvidia", {"0x1AD8", "0x10F0", "0x1E2E", "0x06FF"}),
                        ("intel", {"0x2E30", "0x7120", "0x2A41", "0x4F90", "0x0104"})):
            self.assertFalse(ids[v] & gone, v)
        self.assertLessEqual({"0x1309", "0x68E0", "0x73BF", "0x7480"}, ids["amd"])
        self.assertLessEqual({"0x1F9D", "0x1E87", "0x1C8C", "0x1C8D", "0x2191", "0x1140", "0x0047", "0x05E7"}, ids["nvidia"])
        self.assertLessEqual({"0x2E32", "0x2E33", "0x4680", "0x5921", "0x46A1", "0x56B1", "0x015A"}, ids["intel"])
        # Another vendor's device of the same number is not read as Intel's or AMD's.
        self.assertEqual(p["intel"]["0x5921"][3], "Intel HD Graphics 620")

    def test_devices_the_tables_name_are_left_alone(self):
        p = proposals()
        self.assertNotIn("0x1E04", p["nvidia"])
        self.assertNotIn("0x744C", p["amd"])


class Naming(unittest.TestCase):
    def test_maker_prefix_code_name_and_one_product(self):
        p = proposals()
        want = {
            ("nvidia", "0x1E87"): ("TU104", "NVIDIA GeForce RTX 2080 Rev. A"),
            ("nvidia", "0x0047"): ("NV40", "NVIDIA GeForce 6800 GS"),
            ("amd", "0x68E0"): ("Park", "ATI Mobility Radeon HD 5430 Series"),
            ("amd", "0x73BF"): ("Navi 21", "AMD Radeon RX 6800 Series"),
            ("intel", "0x4680"): ("Alder Lake-S GT1", "Intel UHD Graphics 770"),
            ("intel", "0x2E32"): ("4 Series", "Intel Integrated Graphics (4 Series)"),
            # A platform name where the list gives only the brand.
            ("intel", "0x46A1"): ("Alder Lake", "Intel UHD Graphics (Alder Lake)"),
            ("intel", "0x56B1"): ("DG2", "Intel Arc Pro A40 Series"),
        }
        for (v, did), (code, full) in want.items():
            row = p[v][did]
            self.assertEqual((row[1], row[3]), (code, full), did)
            self.assertEqual(row[5:], ["0", "0", "0", "-1", "-1", "0"], did)  # figures unknown
        for v in p:
            for did, row in p[v].items():
                self.assertNotIn("/", row[3], did)

    def test_a_chip_code_alone_names_maker_and_chip(self):
        p = proposals()
        self.assertEqual(p["amd"]["0x15BF"][3], "AMD Radeon Graphics (Phoenix1)")  # an APU's graphics
        self.assertEqual(p["amd"]["0x67CF"][3], "AMD GPU (Ellesmere)")
        self.assertEqual(p["nvidia"]["0x0FE8"][3], "NVIDIA Mobile GPU (GK107M)")
        self.assertEqual(p["intel"]["0x4F80"][3], "Intel Graphics (DG2)")
        self.assertEqual([p["amd"]["0x15BF"][4], p["amd"]["0x67CF"][4], p["nvidia"]["0x0FE8"][4]], ["122", "120", "110"])

    def test_mobile_parts_say_so(self):
        p = proposals()
        self.assertEqual(p["nvidia"]["0x2191"][3], "NVIDIA GeForce GTX 1660 Ti Mobile")
        # Mobile and Max-Q are two power settings of one laptop part: one name, not a family.
        self.assertEqual(p["nvidia"]["0x1F9D"][3], "NVIDIA GeForce GTX 1650 Mobile")
        self.assertEqual(p["nvidia"]["0x1140"][3], "NVIDIA GeForce 610M Series")

    def test_slash_lists_expand_to_whole_names(self):
        self.assertEqual(imp.expand("Radeon RX 6800/6800 XT / 6900 XT"),
                         ["Radeon RX 6800", "Radeon RX 6800 XT", "Radeon RX 6900 XT"])
        self.assertEqual(imp.expand("GeForce GTX 1650 Mobile / Max-Q"),
                         ["GeForce GTX 1650 Mobile", "GeForce GTX 1650 Max-Q"])
        self.assertEqual(imp.expand("Radeon HD 7850 / R7 265 / R9 270 1024SP"),
                         ["Radeon HD 7850", "Radeon R7 265", "Radeon R9 270 1024SP"])
        self.assertEqual(imp.expand("Radeon RX 7700S/7600/7600S/7600M XT/PRO W7600"),
                         ["Radeon RX 7700S", "Radeon RX 7600", "Radeon RX 7600S", "Radeon RX 7600M XT", "Radeon PRO W7600"])
        self.assertEqual(imp.expand("Tesla C1060 / M1060"), ["Tesla C1060", "Tesla M1060"])
        # A tail written once belongs to every item.
        self.assertEqual(imp.expand("RTX 2000 / 2000E Ada Generation"), ["RTX 2000 Ada Generation", "RTX 2000E Ada Generation"])
        self.assertEqual(imp.expand("Radeon R6/R7 Graphics"), ["Radeon R6 Graphics", "Radeon R7 Graphics"])
        self.assertEqual(imp.expand("Radeon HD 8670 / R5 340X OEM / R7 250/350/350X OEM"),
                         ["Radeon HD 8670", "Radeon R5 340X OEM", "Radeon R7 250", "Radeon R7 350", "Radeon R7 350X OEM"])

    def test_boards_named_by_their_subsystem(self):
        p = proposals()
        amd = p["amd"]
        self.assertEqual(amd["0x73BF:1002:0E3A"][3], "AMD Radeon RX 6900 XT")
        self.assertEqual(amd["0x73BF:1DA2:E437"][3], "AMD Radeon RX 6800")
        # The longer product of the list wins over its prefix; the board's brand is not the product.
        self.assertEqual(amd["0x73BF:1DA2:438E"][3], "AMD Radeon RX 6800 XT")
        self.assertEqual(amd["0x73BF:1462:3950"][3], "AMD Radeon RX 6800 XT")
        self.assertNotIn("0x73BF:1043:04F2", amd)  # names no product: the family row answers
        nv = p["nvidia"]
        self.assertEqual(nv["0x1140:17AA:3901"][3], "NVIDIA GeForce 820M")
        self.assertEqual(nv["0x1140:1025:0773"][3], "NVIDIA GeForce 710M")
        self.assertEqual(nv["0x1140:1043:14C7"][3], "NVIDIA GeForce GT 720M")  # the list's "GT 620M/.../720M"
        self.assertEqual(nv["0x1C8D:1043:15A7"][3], "NVIDIA GeForce GTX 1050 Ti Mobile")
        self.assertEqual(nv["0x1C8D:1028:087C"][3], "NVIDIA GeForce GTX 1050 Mobile")
        # A device with one name gets no board rows.
        self.assertFalse([k for k in nv if k.startswith("0x2191:")])

    def test_feature_level_from_the_chip_or_unknown(self):
        p = proposals()
        self.assertEqual(p["nvidia"]["0x1E87"][4], "122")  # TU102's rows say 12_2 ... and the TU10x rule
        self.assertEqual(p["nvidia"]["0x2191"][4], "121")  # GTX 16: no 12_2
        self.assertEqual(p["nvidia"]["0x0047"][4], "93")
        self.assertEqual(p["amd"]["0x68E0"][4], "110")
        self.assertEqual(p["intel"]["0x2E32"][4], "100")  # the existing Gen4.5 row's chip family
        self.assertEqual(p["intel"]["0x4680"][4], "121")
        # No platform named: the device number's generation gives it.
        self.assertEqual((p["intel"]["0x5921"][1], p["intel"]["0x5921"][4]), ("Kaby Lake", "121"))
        self.assertEqual(p["nvidia"]["0x0028"][3], "NVIDIA Riva TNT2 Series")
        self.assertEqual(p["nvidia"]["0x0028"][4], "0")  # an architecture without a certain level: unknown


NEWER = """\
# a later list
1002  Advanced Micro Devices, Inc. [AMD/ATI]
	13c0  Granite Ridge [Radeon Graphics]
	73bf  Navi 21 [Radeon RX 6800/6800 XT / 6900 XT]
10de  NVIDIA Corporation
	2b85  GB202 [GeForce RTX 5090]
	28e0  AD107M [GeForce RTX 4060 Max-Q / Mobile]
8086  Intel Corporation
	7d55  Meteor Lake-P [Intel Arc Graphics]
	e20b  Battlemage G21 [Arc B580]
"""


class NewerList(unittest.TestCase):
    def test_a_later_list_adds_devices_and_replaces_entries(self):
        old = imp.parse_pci_ids(PCI_IDS.splitlines())
        merged = imp.merge(old, imp.parse_pci_ids(NEWER.splitlines()))
        amd = {d: (n, s) for d, n, s in merged["1002"]}
        self.assertIn("13c0", amd)
        self.assertIn("1309", amd)  # the older list's devices stay
        # Same entry in both: the older list's boards are kept when the newer names none.
        self.assertEqual(len(amd["73bf"][1]), 5)
        self.assertEqual([d for d, _, _ in merged["10de"]], sorted(d for d, _, _ in merged["10de"]))

    def test_brands_without_a_model_name_their_chip(self):
        pci = imp.parse_pci_ids(NEWER.splitlines())
        names = {(v, d): imp.rows_for(v, d, n, s, {})[0] for v in pci for d, n, s in pci[v]}
        self.assertEqual(names[("1002", "13c0")][3], "AMD Radeon Graphics (Granite Ridge)")
        self.assertEqual(names[("8086", "7d55")][3], "Intel Arc Graphics (Meteor Lake-P)")
        self.assertEqual(names[("8086", "e20b")][3], "Intel Arc B580")
        self.assertEqual(names[("10de", "28e0")][3], "NVIDIA GeForce RTX 4060 Mobile")
        self.assertEqual([names[k][4] for k in (("10de", "2b85"), ("8086", "e20b"), ("1002", "13c0"))], ["122"] * 3)

    def test_the_projects_newer_list_holds_graphics_devices_only(self):
        # Every entry copied into data/gpudb/ by hand must pass the importer's rules, so a
        # mistyped line shows up here rather than as a missing name.
        path = os.path.join(HERE, "..", "data", "gpudb", "pci_ids_newer.txt")
        pci = imp.parse_pci_ids(read(path).splitlines())
        self.assertGreater(sum(len(d) for d in pci.values()), 300)
        left_out = [(v, d, n) for v in pci for d, n, _ in pci[v] if imp.select(v, n) is None]
        self.assertEqual(left_out, [])


class Apply(unittest.TestCase):
    def test_section_is_rewritten_in_place_and_passes_the_generator(self):
        with tempfile.TemporaryDirectory() as d:
            pci = os.path.join(d, "pci.ids")
            with open(pci, "w") as f:
                f.write(PCI_IDS)
            for name, text in EXISTING.items():
                with open(os.path.join(d, name + ".csv"), "w") as f:
                    f.write(text)
            run = [sys.executable, TOOL, "--pci-ids", pci, "--data", d, "--apply"]
            r = subprocess.run(run, capture_output=True, text=True)
            self.assertEqual(r.returncode, 0, r.stderr)
            first = {n: read(os.path.join(d, n + ".csv")) for n in EXISTING}
            self.assertTrue(first["amd"].startswith(EXISTING["amd"]))  # hand-written rows kept as they were
            self.assertIn(imp.SECTION_MARK + " (pci.ids of 2023-04-10", first["amd"])
            r = subprocess.run(run, capture_output=True, text=True)
            self.assertEqual(r.returncode, 0, r.stderr)
            for n in EXISTING:
                self.assertEqual(read(os.path.join(d, n + ".csv")), first[n], n)
            with open(os.path.join(d, "s3.csv"), "w") as f:
                f.write(EXISTING["intel"])
            with open(os.path.join(d, "boards.csv"), "w") as f:
                f.write("subsystem_device_id,model_name\n0x0101,Board\n")
            gen = [sys.executable, GEN, "--out", os.path.join(d, "t.cpp"), "--s3", os.path.join(d, "s3.csv"),
                   "--boards", os.path.join(d, "boards.csv")]
            for n in EXISTING:
                gen += ["--" + n, os.path.join(d, n + ".csv")]
            r = subprocess.run(gen, capture_output=True, text=True)
            self.assertEqual(r.returncode, 0, r.stderr)

    def test_a_missing_list_is_reported(self):
        r = subprocess.run([sys.executable, TOOL, "--pci-ids", "/nonexistent/pci.ids"], capture_output=True, text=True)
        self.assertEqual(r.returncode, 1)
        self.assertIn("cannot read", r.stderr)


if __name__ == "__main__":
    unittest.main()
