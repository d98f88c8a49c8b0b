"""The hardware monitor in real runs, against the project's test doubles: a
fake sysfs tree with amdgpu boards and a fake NVIDIA management library.
Checked through the start-up report, the temperature log, the window title
and the meters on screenshots."""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from ardtest import BUILD, E2ETest, count_pixels, read_png, start_xvfb

HERE = os.path.dirname(os.path.abspath(__file__))
MAKE_SYSFS = os.path.join(HERE, "..", "monitor", "fakes", "make_fake_sysfs.py")
FAKE_NVML = os.path.join(BUILD, "monitor-fakes", "libnvidia-ml.so.1")


class MonitorRuns(E2ETest):
    def fake_env(self, amd_boards=2, nvidia=False):
        root = tempfile.mkdtemp(prefix="ard-sysfs-")
        self.addCleanup(shutil.rmtree, root, True)
        args = [sys.executable, MAKE_SYSFS, os.path.join(root, "sys"), "--gpus", str(amd_boards)]
        if nvidia:
            args += ["--nvidia-slot", "0000:41:00.0"]
        subprocess.run(args, check=True, timeout=60)
        env = {"ARDENTIUM_SYSFS_ROOT": os.path.join(root, "sys"),
               "ARDENTIUM_NVML_LIBRARY": os.path.join(root, "no-such-library.so")}
        if nvidia:
            script = os.path.join(root, "nvml.txt")
            with open(script, "w") as f:
                f.write("gpus=1\ndriver=550.54.14\ngpu0.name=NVIDIA GeForce RTX 4090\ngpu0.device=2684\n"
                        "gpu0.bus=00000000:41:00.0\ngpu0.temp=60\ngpu0.temp_step=1\ngpu0.util=99\ngpu0.fan=30\n"
                        "gpu0.clock=2520\ngpu0.memclock=10501\ngpu0.power_mw=300000\ngpu0.limit_mw=450000\n")
            env["ARDENTIUM_NVML_LIBRARY"] = FAKE_NVML
            env["ARDENTIUM_FAKE_NVML_SCRIPT"] = script
        return env

    def test_report_temperature_log_and_meters_with_fake_boards(self):
        inst = self.install()
        env = self.fake_env(amd_boards=2, nvidia=True)
        r = inst.run("/display_gui=0", "/test3d=2003", "/animation_time=3.0", "/run_mode=1", "/max_time=3000", "/width=320", "/height=240",
                     "/headless", "/log_temperature", "/screenshot=shot.png", env=env, timeout=300)
        self.assertEqual(r.returncode, 0, r.stderr)
        msgs = inst.messages()
        found = [m for m in msgs if re.match(r"^Found \d+ GPU\(s\)\.$", m)]
        self.assertEqual(found, ["Found 3 GPU(s)."], msgs)
        gpus = [m for m in msgs if re.match(r"^- GPU \d+: ", m)]
        self.assertEqual(len(gpus), 3)
        self.assertIn("- GPU 3: NVIDIA GeForce RTX 4090", gpus)
        self.assertTrue(any(m.startswith("  - GPU temperature: ") for m in msgs))
        self.assertTrue(any(m.startswith("  - GPU load: ") and m.endswith(" %") for m in msgs))
        self.assertIn("  - Fan speed: 30 %", msgs)
        self.assertIn("  - Graphics driver: 550.54.14", msgs)
        # The report comes before the test starts and after the mesh library.
        self.assertLess(msgs.index("Detecting GPUs..."), msgs.index("Default background image loaded OK."))

        # One line per GPU per sample, GPU 0 first, in the program folder.
        with open(inst.path("gpu-temperature.xml"), "rb") as f:
            text = f.read().decode("latin-1")
        lines = text.splitlines()
        self.assertEqual(lines[0], '<?xml version="1.0" encoding="Windows-1252" standalone="yes"?>')
        self.assertEqual(lines[3], "* VXA Ardentium 2.6.0")
        self.assertTrue(lines[5].startswith('<gpuTemperature graphics_card="'))
        samples = [re.match(r'^\t<temperature gpu="(\d)" celcius="([\d.]+)" fahrenheit="([\d.]+)" seconds="([\d.]+)" />$',
                            l) for l in lines[6:] if l.startswith("\t")]
        self.assertTrue(all(samples), lines[6:12])
        self.assertGreaterEqual(len(samples), 6)
        self.assertEqual(len(samples) % 3, 0)
        self.assertEqual([int(m.group(1)) for m in samples[:6]], [0, 1, 2, 0, 1, 2])
        for m in samples:
            c, f = float(m.group(2)), float(m.group(3))
            self.assertAlmostEqual(f, c * 1.8 + 32, places=1)
        self.assertEqual(lines[-1], "</gpuTemperature>")
        nvidia = [float(m.group(2)) for m in samples if m.group(1) == "2"]
        self.assertGreater(nvidia[-1], nvidia[0])  # the fake's temperature rises

        # Load meter (green fills from x = 12) and thermometer (red fills from
        # x = 152), one bar every 40 pixels.
        w, h, rows = read_png(os.path.join(inst.work_dir, "shot.png"))
        green = count_pixels(rows, (10, 100, 130, h), lambda r, g, b: g > 120 and r < 100 and b < 100)
        red = count_pixels(rows, (150, 100, 270, h), lambda r, g, b: r > 120 and g < 90 and b < 90)
        self.assertGreater(green, 200)
        self.assertGreater(red, 200)

    def test_without_any_display_device_the_program_says_so(self):
        inst = self.install()
        env = self.fake_env(amd_boards=0)
        r = inst.run("/display_gui=1", env=env, timeout=120)
        # Either way nothing can run: no driver, or (without a display) no launcher.
        self.assertEqual(r.returncode, 2, r.stderr)
        msgs = inst.messages()
        if "Graphics drivers detection failed. Bye!" not in msgs:
            # The OpenGL renderer counts as a display device where the
            # kernel lists none (a virtual machine's software renderer).
            self.assertTrue(any(re.match(r"^Found \d+ GPU\(s\)\.$", m) for m in msgs), msgs)

    @unittest.skipUnless(shutil.which("Xvfb") and shutil.which("xdotool"), "needs Xvfb and xdotool")
    def test_window_title_carries_the_first_gpu_temperature(self):
        display = start_xvfb(self)
        inst = self.install()
        env = self.fake_env(amd_boards=2)
        env["DISPLAY"] = display
        p = inst.start("/display_gui=0", "/test3d=2003", "/animation_time=3.0", "/run_mode=2", "/width=320", "/height=180", env=env)
        self.addCleanup(lambda: p.poll() is None and p.kill())
        wid, title = self.wait_title(display, inst, p, r"^Ardentium - Furry.*GPU1 temp: \d+$")
        self.assertRegex(title, r"^Ardentium - Furry VXA GL2 - FPS=\d+, GPU1 temp: \d+$")
        subprocess.run(["xdotool", "key", "--window", wid, "Escape"], env=dict(os.environ, DISPLAY=display), timeout=20)
        self.assertEqual(self.wait_exit(inst, p), 0)


if __name__ == "__main__":
    unittest.main()
