"""The GPU database generator refuses malformed data and emits the tables."""
import os
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
GEN = os.path.join(HERE, "gen_gpudb.py")
HEADER = ("device_id,code_name,short_name,full_name,d3d_level,unified_shaders,vertex_units,pixel_units,"
          "texture_units,rop_units,board_power_w\n")
GOOD = HEADER + "0x13C0,GM204,GTX 980,NVIDIA GeForce GTX 980,110,2048,0,0,128,64,165\n"
BOARDS = "subsystem_device_id,model_name\n0x0101,Board\n"


class Generator(unittest.TestCase):
    def run_gen(self, nvidia=GOOD, amd=GOOD, boards=BOARDS):
        with tempfile.TemporaryDirectory() as d:
            files = {}
            for name, text in (("nvidia", nvidia), ("amd", amd), ("s3", GOOD), ("intel", GOOD), ("boards", boards)):
                files[name] = os.path.join(d, name + ".csv")
                with open(files[name], "w") as f:
                    f.write(text)
            out = os.path.join(d, "out.cpp")
            args = [sys.executable, GEN, "--out", out] + [x for k, v in files.items() for x in ("--" + k, v)]
            r = subprocess.run(args, capture_output=True, text=True)
            text = open(out).read() if os.path.exists(out) else ""
            return r.returncode, r.stderr, text

    def test_good_data_gives_tables(self):
        code, err, text = self.run_gen()
        self.assertEqual(code, 0, err)
        self.assertIn('{0x13C0u, 0x0u, "GM204", "GTX 980", "NVIDIA GeForce GTX 980", 110, 2048, 0, 0, 128, 64, 165},', text)
        self.assertIn("const int kNvidiaRows = 1;", text)
        self.assertIn('{0x0101u, "Board"},', text)

    def test_bad_rows_stop_the_build(self):
        bad = {
            "duplicate id": GOOD + "0x13C0,GM204,x,y,110,1,0,0,1,1,1\n",
            "decimal id": HEADER + "5056,GM204,x,y,110,1,0,0,1,1,1\n",
            "feature level": HEADER + "0x13C0,GM204,x,y,105,1,0,0,1,1,1\n",
            "columns": HEADER + "0x13C0,GM204,x,y,110,1,0,0,1,1\n",
            "not a number": HEADER + "0x13C0,GM204,x,y,110,many,0,0,1,1,1\n",
            "unified with vertex units": HEADER + "0x13C0,GM204,x,y,110,128,8,0,1,1,1\n",
            "no full name": HEADER + "0x13C0,GM204,x,,110,1,0,0,1,1,1\n",
            "quote in name": HEADER + '0x13C0,GM204,x,"a ""b""",110,1,0,0,1,1,1\n',
            "non-ASCII": HEADER + "0x13C0,GM204,x,caf\u00e9,110,1,0,0,1,1,1\n",
            "negative power": HEADER + "0x13C0,GM204,x,y,110,1,0,0,1,1,-5\n",
            "wrong header": "id,name\n0x1,x\n",
            "a list of products": HEADER + "0x73BF,Navi 21,x,AMD Radeon RX 6800/6800 XT,122,0,0,0,-1,-1,0\n",
            "board row alone": HEADER + "0x73BF:1002:0E3A,Navi 21,x,AMD Radeon RX 6900 XT,122,0,0,0,-1,-1,0\n",
            "board row twice": GOOD + "0x13C0:10DE:1234,GM204,x,y,110,1,0,0,1,1,1\n0x13C0:10de:1234,GM204,x,z,110,1,0,0,1,1,1\n",
            "malformed board": GOOD + "0x13C0:10DE,GM204,x,y,110,1,0,0,1,1,1\n",
        }
        for what, text in bad.items():
            code, err, _ = self.run_gen(nvidia=text)
            if what == "quote in name":
                # Quotes are legal CSV and are escaped in the C++ text.
                self.assertEqual(code, 0, err)
                continue
            self.assertNotEqual(code, 0, what)
            self.assertIn("gen_gpudb: error:", err, what)

    def test_boards_told_apart_by_subsystem(self):
        code, err, text = self.run_gen(amd=HEADER + "0x73BF,Navi 21,RX 6800 Series,AMD Radeon RX 6800 Series,122,0,0,0,-1,-1,0\n"
                                       "0x73BF:1002:0E3A,Navi 21,RX 6900 XT,AMD Radeon RX 6900 XT,122,5120,0,0,320,128,300\n")
        self.assertEqual(code, 0, err)
        self.assertIn('{0x73BFu, 0x10020E3Au, "Navi 21", "RX 6900 XT", "AMD Radeon RX 6900 XT"', text)
        self.assertIn('{0x73BFu, 0x0u, "Navi 21"', text)

    def test_never_rows_may_repeat(self):
        code, err, text = self.run_gen(nvidia=GOOD + "never,GM204,a,A,110,1,0,0,1,1,1\nnever,GM204,b,B,110,1,0,0,1,1,1\n")
        self.assertEqual(code, 0, err)
        self.assertEqual(text.count("0xFFFFFFFFu"), 2)

    def test_board_list_must_be_unique(self):
        code, err, _ = self.run_gen(boards=BOARDS + "0x0101,Again\n")
        self.assertNotEqual(code, 0)

    def test_project_data_is_valid(self):
        data = os.path.join(HERE, "..", "data", "gpudb")
        args = [sys.executable, GEN, "--out", os.devnull]
        for k, f in (("nvidia", "nvidia"), ("amd", "amd"), ("s3", "s3"), ("intel", "intel"), ("boards", "maker_boards")):
            args += ["--" + k, os.path.join(data, f + ".csv")]
        r = subprocess.run(args, capture_output=True, text=True)
        self.assertEqual(r.returncode, 0, r.stderr)


if __name__ == "__main__":
    unittest.main()
