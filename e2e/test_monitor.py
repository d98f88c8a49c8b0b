"""The hardware monitor in real runs, against the project's test doubles: a
fake sysfs tree with amdgpu boards and a fake NVIDIA management library.
Checked through the start-up report, the temperature log, the window title
and the meters on screenshots."""
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from ardtest import BUILD, E2ETest, count_pixels, read_png, start_xvfb

HERE = os.path.dirname(os.path.abspath(__file__))
MAKE_SYSFS = os.path.join(HERE, "..", "monitor", "fakes", "make_fake_sysfs.py")
FAKE_NVML = os.path.join(BUILD, "monitor-fakes", "libnvidia-ml.so.1")
PUBLISHER = os.path.join(BUILD, "monitor-fakes", "monitor_shm_publisher")


class MonitorRuns(E2ETest):
    def fake_env(self, amd_boards=2, nvidia=False, nouveau=False, bare_nvidia=False):
        """nvidia: an RTX 4090 read through the fake NVML; nouveau: an RTX
        3060 with hwmon only; bare_nvidia: the RTX 4090 without its library
        or hwmon, a GPU no interface reads."""
        root = tempfile.mkdtemp(prefix="ard-sysfs-")
        self.addCleanup(shutil.rmtree, root, True)
        args = [sys.executable, MAKE_SYSFS, os.path.join(root, "sys"), "--gpus", str(amd_boards)]
        if nouveau:
            args += ["--nouveau-slot", "0000:0a:00.0"]
        if nvidia or bare_nvidia:
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
        # Seconds since the test started: they run on through the end of the
        # 4-second warm-up instead of starting again at 0.
        for gpu in "012":
            seconds = [float(m.group(4)) for m in samples if m.group(1) == gpu]
            self.assertEqual(seconds, sorted(seconds), seconds)
            self.assertEqual(seconds[0], 0.0)
            self.assertGreater(seconds[-1], 4.5, seconds)
        self.assertTrue(lines[5].startswith('<gpuTemperature graphics_card="AMD Radeon RX 6950 XT"'), lines[5])

        # Load meter (green fills from x = 12) and thermometer (red fills from
        # x = 152), one bar every 40 pixels.
        w, h, rows = read_png(os.path.join(inst.work_dir, "shot.png"))
        green = count_pixels(rows, (10, 100, 130, h), lambda r, g, b: g > 120 and r < 100 and b < 100)
        red = count_pixels(rows, (150, 100, 270, h), lambda r, g, b: r > 120 and g < 90 and b < 90)
        self.assertGreater(green, 200)
        self.assertGreater(red, 200)

    def test_gpu_listing_on_standard_output(self):
        inst = self.install()
        env = self.fake_env(amd_boards=1, nouveau=True, bare_nvidia=True)
        # A compute board that only the vendor library shows, its id written
        # in hex without "0x" as PCI id lists write it.
        script = os.path.join(os.path.dirname(env["ARDENTIUM_SYSFS_ROOT"]), "nvml.txt")
        with open(script, "w") as f:
            f.write("gpus=1\ndriver=550.54.14\ngpu0.name=NVIDIA H100 80GB HBM3\ngpu0.device=2330\n"
                    "gpu0.subvendor=10de\ngpu0.subdevice=16c1\ngpu0.bus=00000000:81:00.0\ngpu0.temp=44\n"
                    "gpu0.util=7\ngpu0.clock=1980\ngpu0.memclock=2619\ngpu0.power_mw=350000\ngpu0.limit_mw=700000\n")
        env["ARDENTIUM_NVML_LIBRARY"] = FAKE_NVML
        env["ARDENTIUM_FAKE_NVML_SCRIPT"] = script
        r = inst.run("/list_gpus", env=env, timeout=120)
        self.assertEqual(r.returncode, 0, r.stderr)
        out = r.stdout
        self.assertTrue(out.startswith("GPUs: 4\n"), out)
        gpus = {}
        current = None
        for line in out.splitlines():
            m = re.match(r"^GPU (\d): (.*)$", line)
            if m:
                current = m.group(2)
                gpus[current] = {}
            elif current and line.startswith("  "):
                key, _, value = line.strip().partition(": ")
                gpus[current][key] = value
        self.assertEqual(sorted(gpus), ["AMD Radeon RX 6950 XT", "NVIDIA GeForce RTX 3060", "NVIDIA GeForce RTX 4090",
                                        "NVIDIA H100 80GB HBM3"], out)
        amd = gpus["AMD Radeon RX 6950 XT"]
        self.assertEqual((amd["Sensor interface"], amd["Temperature"], amd["GPU load"], amd["Core clock"]),
                         ("sysfs", "50.0 C", "80 %", "2250 MHz"))
        nouveau = gpus["NVIDIA GeForce RTX 3060"]
        self.assertEqual((nouveau["PCI ID"], nouveau["Driver"], nouveau["Sensor interface"], nouveau["Temperature"],
                          nouveau["GPU load"], nouveau["Fan"], nouveau["Power"]),
                         ("10DE:2503", "nouveau", "sysfs", "57.0 C", "n.a.", "1320 RPM", "50 % of the board limit"))
        bare = gpus["NVIDIA GeForce RTX 4090"]
        self.assertEqual(bare["Sensor interface"], "none")
        self.assertEqual({bare[k] for k in ("Temperature", "GPU load", "Fan", "Core clock", "Power")}, {"n.a."})
        h100 = gpus["NVIDIA H100 80GB HBM3"]
        self.assertEqual((h100["PCI ID"], h100["Subsystem ID"], h100["Sensor interface"], h100["Driver"]),
                         ("10DE:2330", "10DE:16C1", "NVML", "550.54.14"))
        self.assertEqual((h100["Temperature"], h100["GPU load"], h100["Core clock"], h100["Power"]),
                         ("44.0 C", "7 %", "1980 MHz", "50 % of the board limit"))
        # A one-shot: no test ran, nothing was recorded.
        self.assertNotIn("Result:", out)
        self.assertFalse(os.path.exists(inst.path("gpu-temperature.xml")))

    def publish_gpuz(self):
        ready = os.path.join(tempfile.mkdtemp(prefix="ard-gpuz-"), "ready")
        self.addCleanup(shutil.rmtree, os.path.dirname(ready), True)
        p = subprocess.Popen([PUBLISHER, "--gpuz", "--seconds", "120", "--ready", ready])
        self.addCleanup(lambda: (p.poll() is None and p.terminate(), p.wait(30)))
        for _ in range(300):
            if os.path.exists(ready):
                return p
            time.sleep(0.1)
        self.fail("the GPU-Z publisher did not start")

    def test_gpuz_bridge_is_switched_on_by_its_setting(self):
        self.publish_gpuz()
        env = self.fake_env(amd_boards=1)

        def run(*extra):
            inst = self.install()
            r = inst.run("/display_gui=0", "/test3d=2003", "/animation_time=3.0", "/run_mode=1", "/max_time=1000",
                         "/width=160", "/height=120", "/headless", "/results_json=r.json", *extra, env=env, timeout=300)
            self.assertEqual(r.returncode, 0, r.stderr)
            with open(os.path.join(inst.work_dir, "r.json")) as f:
                return inst, json.load(f)["gpus"][0]["sensors"]

        inst, off = run()
        self.assertEqual(off["core_clock_mhz"], {"min": 2250, "max": 2250})  # the board's own clock
        self.assertNotIn("GPU-Z bridge: on; GPU-Z's readings are used while it runs.", inst.messages())
        inst, on = run("/enable_gpuz_bridge=1")
        # The publisher's core clock is 1500 MHz plus a tick a second, its VDDC 1.05 V.
        self.assertGreaterEqual(on["core_clock_mhz"]["min"], 1500)
        self.assertLess(on["core_clock_mhz"]["max"], 1700)
        self.assertAlmostEqual(on["core_voltage_v"]["max"], 1.05, places=3)
        self.assertEqual(on["temperature_c"]["min"], 50)  # the board's own sensor stays in charge
        msgs = inst.messages()
        self.assertIn("GPU-Z bridge: on; GPU-Z's readings are used while it runs.", msgs)
        self.assertIn("GPU-Z bridge: GPU 1's clocks and voltage now come from GPU-Z.", msgs)

        listing = self.install().run("/list_gpus", env=env, timeout=120)
        self.assertEqual(listing.returncode, 0, listing.stderr)
        self.assertIn("GPU-Z: 4 sensors\n  GPU Core Clock: 15", listing.stdout)

    def test_hud_with_a_gpu_no_interface_reads(self):
        inst = self.install()
        env = self.fake_env(amd_boards=1, nouveau=True, bare_nvidia=True)
        # A stability test, so that the panels and graphs are drawn; stopped
        # as a user would once a few sensor periods have passed.
        p = inst.start("/display_gui=0", "/test3d=2003", "/animation_time=3.0", "/run_mode=2", "/width=640",
                       "/height=480", "/headless", "/log_temperature", "/render_gpu_monitor=1", "/render_temp_graph=1",
                       "/screenshot=hud3.png", env=env)
        self.addCleanup(lambda: p.poll() is None and p.kill())
        self.wait_message(inst, p, lambda m: "context init ok." in m, "context init", timeout=120)
        time.sleep(6)
        p.send_signal(signal.SIGINT)
        self.assertEqual(self.wait_exit(inst, p, timeout=120), 0)
        keep = os.environ.get("ARDENTIUM_KEEP_SCREENSHOTS")
        if keep:
            shutil.copy2(os.path.join(inst.work_dir, "hud3.png"), os.path.join(keep, "hud-three-gpus.png"))
        w, h, rows = read_png(os.path.join(inst.work_dir, "hud3.png"))
        # Bars 40 pixels apart, fills 20 wide: load fills from x = 12, thermometer fills from x = 152;
        # their bottoms at 150 + 240 = 390.
        green = lambda r, g, b: g > 120 and r < 100 and b < 100
        red = lambda r, g, b: r > 120 and g < 90 and b < 90
        self.assertGreater(count_pixels(rows, (14, 300, 30, 388), green), 500)   # GPU0 load 80 %
        self.assertLess(count_pixels(rows, (54, 300, 70, 388), green), 20)      # nouveau: no load counter
        self.assertLess(count_pixels(rows, (94, 300, 110, 388), green), 20)     # nothing reads GPU 3
        self.assertGreater(count_pixels(rows, (154, 300, 170, 388), red), 500)  # 50 C
        self.assertGreater(count_pixels(rows, (194, 300, 210, 388), red), 500)  # 57 C through hwmon
        self.assertLess(count_pixels(rows, (234, 300, 250, 388), red), 20)      # n.a.
        with open(inst.path("gpu-temperature.xml"), "rb") as f:
            text = f.read().decode("latin-1")
        logged = set(re.findall(r'<temperature gpu="(\d)"', text))
        self.assertEqual(logged, {"0", "1"}, text)  # no celcius="0.00" lines for the GPU nothing reads

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
