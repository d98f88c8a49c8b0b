"""Start-up and shut-down as a user meets them: the event log, the settings
file, the console output of the diagnostic switches."""
import os
import re
import shutil
import signal
import subprocess
import time
import unittest

from ardtest import BUILD, E2ETest

PREFIX = re.compile(r"^\d{4}/\d{1,2}/\d{1,2} @ \d\d:\d\d:\d\d, ID=(\d+) >> ")

START = [
    "VXA Ardentium DX11 is starting up.",
    re.compile(r"^Build: 2\.6\.0 \[\w{3} [ \d]\d \d{4} @ \d\d:\d\d:\d\d\]$"),
    re.compile(r"^CPU Arch: \d+$"),
    re.compile(r"^CPU Level: \d+$"),
    re.compile(r"^# of CPU processors: \d+$"),
    re.compile(r"^Linux Build: \d+ - Linux Ver: \d+\.\d+$"),
    "VXA Tachyra not found.",
]


class Shell(E2ETest):
    def assertStartsWith(self, messages, expected):
        self.assertGreaterEqual(len(messages), len(expected), messages)
        for got, want in zip(messages, expected):
            if isinstance(want, str):
                self.assertEqual(got, want)
            else:
                self.assertRegex(got, want)

    def test_version_box_and_early_return(self):
        inst = self.install()
        r = inst.run("/version")
        self.assertEqual(r.returncode, 0)
        self.assertIn("VXA Ardentium Information: VXA Ardentium v2.6.0", r.stderr)
        lines = inst.log_lines()
        # Numbered from 1, every line carries the prefix.
        self.assertEqual([int(PREFIX.match(l).group(1)) for l in lines], list(range(1, len(lines) + 1)))
        msgs = inst.messages()
        self.assertStartsWith(msgs, START)
        self.assertEqual(msgs[len(START):], ["VXA Ardentium v2.6.0"])
        # The log lands where the program was started, not beside it.
        self.assertFalse(os.path.exists(inst.path("ardentium_log.txt")))
        self.assertFalse(os.path.exists(inst.path("startup_options.xml")))

    def test_direct_run_shuts_down_in_order_and_replaces_log(self):
        inst = self.install()
        with open(os.path.join(inst.work_dir, "ardentium_log.txt"), "w") as f:
            f.write("old run\n" * 50)
        # A test number that names no test starts nothing. With a display the
        # program would wait for its user; without one it says so and ends
        # with the "could not start" code instead of hanging a script.
        r = inst.run("/display_gui=0", "/test3d=1", "/width=800", timeout=30)
        self.assertEqual(r.returncode, 2, r.stderr)
        self.assertIn("No test has the identifier 1: nothing was started", r.stderr)
        self.assertNotIn("Result:", r.stdout)
        msgs = inst.messages()
        self.assertStartsWith(msgs, START)
        self.assertNotIn("old run", "\n".join(inst.log_lines()))
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
        # A direct run never writes the settings file.
        self.assertFalse(os.path.exists(inst.path("startup_options.xml")))
        # No display here: the modes line says so.
        self.assertEqual([m for m in msgs if m.startswith("Display modes:")], ["Display modes: none (no display)."])

        # Test 0 is the launcher's to start; a direct start of it starts nothing.
        r = inst.run("/display_gui=0", "/test3d=0", timeout=30)
        self.assertEqual(r.returncode, 2, r.stderr)
        self.assertNotIn("context init ok.", "\n".join(inst.messages()))

        r = inst.run("/display_gui=1")
        self.assertEqual(r.returncode, 2)
        msgs = inst.messages()
        self.assertEqual(msgs[0], "VXA Ardentium DX11 is starting up.")
        self.assertEqual(msgs.count("Exit from VXA Ardentium."), 1)

    def test_missing_or_incomplete_mesh_library_is_fatal(self):
        inst = self.install(with_library=False)
        r = inst.run("/display_gui=1")
        self.assertEqual(r.returncode, 2)  # could not start
        self.assertIn("FATAL ERROR: unable to load adata library.", r.stderr)
        msgs = inst.messages()
        self.assertEqual(msgs[-1], "FATAL ERROR: unable to load adata library.")
        self.assertNotIn("Exit from VXA Ardentium.", msgs)

        shutil.copy2(os.path.join(BUILD, "e2e-libs", "libincomplete_adata.so"), inst.path("libadata.so"))
        inst.run("/display_gui=1")
        msgs = inst.messages()
        self.assertEqual(msgs[-1], "FATAL ERROR: unable to load adata pointers.")
        self.assertNotIn("Exit from VXA Ardentium.", msgs)

    def test_print_settings_layers_file_and_command_line(self):
        inst = self.install()
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write('<?xml version="1.0"?>\n<ardentium>\n\t<settings width="1024" height="768" run_mode="STABILITY_TEST"'
                    ' furry_object="TORUS" display_gui="2" api3d="77" aa_mode="8X CSAA" log_score="2" />\n</ardentium>')
        before = open(inst.path("startup_options.xml")).read()
        r = inst.run("--print_settings", "--width=800", "/api3d=7", "/fullscreen=1", "/render_post_fx", "/furry_hd6970")
        self.assertEqual(r.returncode, 0)
        settings = dict(line.split("=", 1) for line in r.stdout.splitlines())
        self.assertEqual(settings["width"], "800")        # the switch wins over the file
        self.assertEqual(settings["height"], "768")       # the file wins over the default
        self.assertEqual(settings["run_mode"], "2")
        self.assertEqual(settings["display_gui"], "2")
        self.assertEqual(settings["api3d"], "2")          # the switch maps 7 to 2
        self.assertEqual(settings["aa_mode"], "8X CSAA")
        self.assertEqual(settings["log_score"], "0")
        self.assertEqual(settings["fullscreen"], "1")
        self.assertEqual(settings["render_post_fx"], "1")  # carried over from /fullscreen=1
        self.assertEqual(settings["furry_object"], "5")
        self.assertEqual(settings["max_time"], "60000")
        self.assertEqual(list(settings)[0], "test3d")
        self.assertEqual(open(inst.path("startup_options.xml")).read(), before)

        # A broken file leaves the defaults in force.
        with open(inst.path("startup_options.xml"), "wb") as f:
            f.write(b'<?xml version="1.0"?>\n<ardentium>\n\t<settings width="1024" height=')
        r = inst.run("/print_settings")
        self.assertEqual(r.returncode, 0)
        self.assertIn("width=1280\n", r.stdout)
        with open(inst.path("startup_options.xml"), "wb") as f:
            f.write(bytes(range(256)) * 8)
        r = inst.run("/print_settings")
        self.assertEqual(r.returncode, 0)
        self.assertIn("height=720\n", r.stdout)

    def test_hostile_settings_file_and_oversize_switches(self):
        inst = self.install()
        # Comments and sections holding markup characters, an entity, and no
        # closing root tag: the settings element is still read.
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write('<?xml version="1.0"?>\n<ardentium><!-- > --><!-->-->\n\t<settings width="1024" '
                    'fur_custom_bkg_map="R&D.png" aa_mode="4X &amp; MSAA" />')
        r = inst.run("/print_settings", "/height=99999999999", "/max_time=-1")
        self.assertEqual(r.returncode, 0)
        settings = dict(line.split("=", 1) for line in r.stdout.splitlines())
        self.assertEqual(settings["width"], "1024")
        self.assertEqual(settings["fur_custom_bkg_map"], "R&D.png")
        self.assertEqual(settings["aa_mode"], "4X & MSAA")
        self.assertEqual(settings["height"], "720")
        self.assertEqual(settings["max_time"], "60000")
        log = "\n".join(inst.messages())
        self.assertIn("Command line: /height=99999999999 refused", log)
        self.assertIn("Command line: /max_time=-1 refused", log)

        with open(inst.path("startup_options.xml"), "w") as f:
            f.write('<ardentium><![CD[x]]><settings width="1024"/></ardentium>')
        r = inst.run("/print_settings")
        self.assertEqual(r.returncode, 0)
        self.assertIn("width=1280\n", r.stdout)

    def test_help(self):
        inst = self.install()
        for arg in ("--help", "/?", "/help"):
            r = inst.run(arg)
            self.assertEqual(r.returncode, 0)
            self.assertIn("/print_settings", r.stdout)
            self.assertIn("/test3d=ID", r.stdout)
            self.assertIn("/results_json=PATH", r.stdout)
            self.assertNotIn("/app_thread_priority", r.stdout)

    def test_tachyra_detected_through_shared_memory(self):
        shm = "/dev/shm/VTHMSharedMemory"
        if os.path.exists(shm):
            self.skipTest("another program publishes the block")
        with open(shm, "wb") as f:
            f.write(b"\0" * 4096)
        self.addCleanup(os.remove, shm)
        inst = self.install()
        inst.run("/version")
        self.assertIn("VXA Tachyra is running...", inst.messages())

    @unittest.skipUnless(shutil.which("xvfb-run"), "needs xvfb-run")
    def test_display_modes_logged_with_a_display(self):
        inst = self.install()
        # The launcher opens on the display; a stop signal closes it once it is up.
        state = os.path.join(inst.root, "state.txt")
        p = subprocess.Popen(["xvfb-run", "-a", "-s", "-screen 0 1024x768x24", inst.path("ardentium"),
                              "/display_gui=1", "/launcher_state=" + state],
                             cwd=inst.work_dir, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        deadline = time.time() + 60
        while not os.path.exists(state) and p.poll() is None and time.time() < deadline:
            time.sleep(0.2)
        launcher_pid = [int(pid) for pid in subprocess.run(["pgrep", "-P", str(p.pid), "ardentium"],
                                                           capture_output=True, text=True).stdout.split()]
        for pid in launcher_pid:
            os.kill(pid, signal.SIGTERM)
        _, err = p.communicate(timeout=60)
        self.assertTrue(launcher_pid, err)
        self.assertEqual(p.returncode, 0, err)
        modes = [m for m in inst.messages() if m.startswith("Display modes:")]
        self.assertGreaterEqual(len(modes), 2)
        self.assertRegex(modes[0], r"^Display modes: \d+x\d+ \(\d+bpp\) @ \d+Hz$")
        # The failing index repeats the last mode read.
        self.assertEqual(modes[-1], modes[-2])


if __name__ == "__main__":
    unittest.main()
