"""The Windows build under Wine: the same start-up, settings and benchmark
run as on Linux, drawn through WGL on a virtual X server."""
import json
import os
import re
import shutil
import subprocess
import tempfile
import time
import unittest

from ardtest import bright_yellow, count_pixels, csv_fields, read_png, start_xvfb, whitish

HERE = os.path.dirname(os.path.abspath(__file__))
WIN_BUILD = os.environ.get("ARDENTIUM_WIN_BUILD", os.path.join(HERE, "..", "build-win"))
LINUX_BUILD = os.environ.get("ARDENTIUM_BUILD", os.path.join(HERE, "..", "build"))
WINE_RUN = os.path.join(HERE, "..", "tools", "wine-run.sh")


class WineInstall:
    def __init__(self):
        self.root = tempfile.mkdtemp(prefix="ard-wine-")
        self.program_dir = os.path.join(self.root, "prog")
        self.work_dir = os.path.join(self.root, "work")
        os.makedirs(self.program_dir)
        os.makedirs(self.work_dir)
        for name in ("ardentium.exe", "adata.dll"):
            shutil.copy2(os.path.join(WIN_BUILD, name), self.program_dir)
        shutil.copytree(os.path.join(WIN_BUILD, "data"), os.path.join(self.program_dir, "data"))

    def run(self, *args, display=None, timeout=180, extra_env=None):
        env = dict(os.environ)
        env.pop("DISPLAY", None)
        if display:
            env["DISPLAY"] = display
        if extra_env:
            env.update(extra_env)
        return subprocess.run([WINE_RUN, os.path.join(self.program_dir, "ardentium.exe"), *args], cwd=self.work_dir,
                              capture_output=True, text=True, timeout=timeout, env=env)

    def messages(self):
        with open(os.path.join(self.work_dir, "ardentium_log.txt"), "rb") as f:
            lines = f.read().decode("latin-1").split("\r\n")
        return [l.split(" >> ", 1)[1] for l in lines if " >> " in l]


class WindowsBuild(unittest.TestCase):
    def install(self):
        inst = WineInstall()
        self.addCleanup(shutil.rmtree, inst.root, True)
        return inst

    def test_print_settings_agrees_with_linux(self):
        linux = os.path.join(LINUX_BUILD, "ardentium")
        if not os.path.exists(linux):
            self.skipTest("no Linux build to compare with")
        inst = self.install()
        with open(os.path.join(inst.program_dir, "startup_options.xml"), "w") as f:
            f.write('<?xml version="1.0"?>\n<ardentium>\n\t<settings width="1024" run_mode="benchmark" '
                    'furry_object="SPHERE" aa_mode="8X CSAA" log_score="2" display_gui="2" />\n</ardentium>')
        lprog = os.path.join(inst.root, "lprog")
        os.makedirs(lprog)
        shutil.copy2(linux, lprog)
        shutil.copy2(os.path.join(inst.program_dir, "startup_options.xml"), lprog)
        cases = [
            [],
            ["/fullscreen=1", "/render_post_fx", "/msaa=3"],
            ["/api3d=7", "/dmsize=9000", "/test3d=2003", "/furry_hd6970", "/furry_torus"],
            ["/display_gui", "/width=800", "/width=640", "/msaa=", "/max_frames=0", "/max_time=0"],
            ["/enable_ty_osd_fix=300", "/dmsize", "/render_gpu_monitor", "/no_music", "/xtreme_burn_in"],
        ]
        for case in cases:
            win = inst.run("/print_settings", *case)
            lin = subprocess.run([os.path.join(lprog, "ardentium"), "/print_settings", *case], cwd=inst.work_dir,
                                 capture_output=True, text=True, timeout=30)
            self.assertEqual(win.returncode, 0, win.stderr)
            self.assertEqual(win.stdout.replace("\r\n", "\n"), lin.stdout, case)
            self.assertIn("run_mode=2\n", lin.stdout)

    def test_version_box_is_logged(self):
        inst = self.install()
        r = inst.run("/version")
        self.assertEqual(r.returncode, 0)
        msgs = inst.messages()
        self.assertEqual(msgs[0], "VXA Ardentium DX11 is starting up.")
        self.assertRegex(msgs[5], r"^Windows Build: \d+ - Windows Ver: \d+\.\d+$")
        self.assertEqual(msgs[-1], "VXA Ardentium v2.6.0")

    @unittest.skipUnless(shutil.which("Xvfb"), "needs Xvfb")
    def test_benchmark_through_wgl(self):
        display = start_xvfb(self)
        inst = self.install()
        res = inst.run("/display_gui=0", "/test3d=2003", "/run_mode=1", "/max_time=1500", "/animation_time=3.0", "/width=400",
                       "/height=240", "/log_score", "/render_a_logo=0", "/screenshot=shot.png", display=display)
        self.assertEqual(res.returncode, 0, res.stderr)
        msgs = inst.messages()
        self.assertTrue(any(m.startswith("OpenGL 2 (") and m.endswith(") context init ok.") for m in msgs), msgs)
        self.assertIn("Main render thread - benchmark finished - exit ok.", msgs)
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
        with open(os.path.join(inst.program_dir, "Ardentium_Scores.csv"), "rb") as f:
            rows = f.read().split(b"\r\n")
        self.assertIn(b"GPU temp max(\xb0C)", rows[0])
        self.assertTrue(rows[1].startswith(b"Furry VXA GL2,"), rows[1])
        self.assertGreater(int(csv_fields(rows[1])[-7]), 0)
        # The window's client area is the outer size less frame and menu.
        width, height, pixels = read_png(os.path.join(inst.work_dir, "shot.png"))
        self.assertLess(width, 400)
        self.assertLess(height, 240)
        self.assertGreater(count_pixels(pixels, (0, 25, width, 45), bright_yellow), 40)
        self.assertGreater(count_pixels(pixels, (0, 45, width, 90), whitish), 80)

    def publish_gpuz(self, display):
        """GPU-Z's block, published by the Windows publisher under the same
        Wine server (the one of the display's prefix) the program will use."""
        folder = tempfile.mkdtemp(prefix="ard-wine-gpuz-")
        self.addCleanup(shutil.rmtree, folder, True)
        ready = os.path.join(folder, "ready")
        env = dict(os.environ, DISPLAY=display)
        p = subprocess.Popen([WINE_RUN, os.path.join(WIN_BUILD, "monitor-fakes", "monitor_shm_publisher.exe"), "--gpuz",
                              "--seconds", "150", "--ready", ready], cwd=folder, env=env,
                             stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (p.poll() is None and p.kill(), p.wait(30)))
        for _ in range(1200):
            if os.path.exists(ready):
                return
            time.sleep(0.1)
        self.fail("the GPU-Z publisher did not start under Wine")

    def test_gpuz_bridge_and_listing_under_wine(self):
        # The monitor's start-up needs a window for its OpenGL context.
        display = start_xvfb(self)
        self.publish_gpuz(display)
        fakes = os.path.join(WIN_BUILD, "monitor-fakes")
        script = os.path.join(tempfile.mkdtemp(prefix="ard-wine-nvapi-"), "nvapi.txt")
        self.addCleanup(shutil.rmtree, os.path.dirname(script), True)
        with open(script, "w") as f:
            f.write("gpus=1\ngpu0.temp=61\n")
        env = {"ARDENTIUM_NVAPI_LIBRARY": os.path.join(fakes, "nvapi64.dll"), "ARDENTIUM_FAKE_NVAPI_SCRIPT": script,
               "ARDENTIUM_ADL_LIBRARY": os.path.join(fakes, "not-here.dll")}
        inst = self.install()
        listing = inst.run("/list_gpus", display=display, extra_env=env)
        self.assertEqual(listing.returncode, 0, listing.stderr)
        out = listing.stdout.replace("\r\n", "\n")
        self.assertRegex(out, r"^GPUs: \d+\n", out)
        self.assertIn("GPU-Z: 4 sensors\n  GPU Core Clock: 15", out)
        self.assertIn("  VDDC: 1.050 V\n", out)
        # Wine's adapter has no vendor interface: its readings are n.a., not 0.
        self.assertIn("  Sensor interface: none\n  Temperature: n.a.\n  GPU load: n.a.\n", out)

        def bench(*extra):
            inst = self.install()
            res = inst.run("/display_gui=0", "/test3d=2003", "/run_mode=1", "/max_time=1000", "/animation_time=3.0",
                           "/width=160", "/height=120", "/results_json=r.json", *extra, display=display,
                           extra_env=env, timeout=300)
            self.assertEqual(res.returncode, 0, res.stderr)
            with open(os.path.join(inst.work_dir, "r.json")) as f:
                return inst, json.load(f)["gpus"][0]["sensors"]

        inst, on = bench("/enable_gpuz_bridge=1")
        self.assertGreaterEqual(on["core_clock_mhz"]["min"], 1500)
        self.assertLess(on["core_clock_mhz"]["max"], 1700)
        self.assertAlmostEqual(on["core_voltage_v"]["max"], 1.05, places=3)
        self.assertIn("GPU-Z bridge: GPU 1's clocks and voltage now come from GPU-Z.", inst.messages())
        inst, off = bench()
        self.assertLess(off.get("core_clock_mhz", {"max": 0})["max"], 1500)
        self.assertNotIn("GPU-Z bridge: GPU 1's clocks and voltage now come from GPU-Z.", inst.messages())

    def test_opengl_4_benchmark_through_wgl(self):
        # Short stages (a test setting) keep llvmpipe under Wine within seconds.
        display = start_xvfb(self)
        inst = self.install()
        res = inst.run("/display_gui=0", "/test3d=2206", "/width=320", "/height=200", "/amark_preset=1",
                       "/amark_stage_seconds=1.5", "/dmsize=256", "/no_music", "/log_score", "/no_visual_indicators",
                       "/render_a_logo=0", "/render_vxa_logo=0", "/screenshot=shot.png", "/gpu=1",
                       display=display, timeout=400)
        self.assertEqual(res.returncode, 0, res.stderr)
        msgs = inst.messages()
        self.assertTrue(any(m.startswith("OpenGL 4 (") and m.endswith(") context with core profile init ok.")
                            for m in msgs), msgs)
        # Wine's WGL has no GPU affinity extension: the run says it cannot
        # choose, and why, and draws on the one GPU there is.
        self.assertIn("OpenGL: /gpu=1 not applied: OpenGL on Windows cannot choose the GPU here (the driver offers no "
                      "GPU affinity extension); it draws on the GPU the driver chose.", msgs)
        # The benchmark's picture and compute checks ran and found nothing.
        self.assertTrue(any(re.match(r"^Verification: \d+ checks, 0 errors\.$", m) for m in msgs), msgs[-20:])
        self.assertIn("AMark Entry preset", msgs)
        self.assertIn("Main render thread - benchmark finished - exit ok.", msgs)
        for name in ("GraphX score", "PhysX score", "Combined score", "AScore"):
            self.assertTrue(any(m.startswith(name + ": ") and m.endswith(" points") for m in msgs), name)
        stages = [m for m in msgs if " frames, " in m and " avg FPS" in m]
        self.assertEqual(len(stages), 5, msgs[-20:])
        for line in stages:
            self.assertGreater(int(line.split(" - ")[1].split()[0]), 0, line)
        with open(os.path.join(inst.program_dir, "Ardentium_Scores.csv"), "rb") as f:
            rows = f.read().split(b"\r\n")
        self.assertTrue(rows[1].startswith(b"AMark GL4 CPU PhysX,"), rows[1])
        # The combined stage's last frame: many colours, not one flat fill.
        width, height, pixels = read_png(os.path.join(inst.work_dir, "shot.png"))
        colours = {(r // 16, g // 16, b // 16) for row in pixels for (r, g, b) in row}
        self.assertGreater(len(colours), 40)


if __name__ == "__main__":
    unittest.main()
