"""The GL test applications as a user sees them: each started directly,
headless and small, stopped after a few seconds like a user stops a
stability test; the event log's start and end, the frames counted in the
result line, and the last frame's picture checked for what the test draws."""
import json
import os
import re
import shutil
import signal
import subprocess
import time
import unittest

from ardtest import E2ETest, count_pixels, read_png, start_xvfb
from test_launcher import read_state

W, H = 320, 180
SCENE_ONLY = ["/render_general_indicators=0", "/render_vxa_logo=0", "/render_a_logo=0"]
# The middle of the view: no text, no logos, no load line.
CENTRE = (W // 4, H // 6, 3 * W // 4, 3 * H // 4)
# Where the pictures are kept for a person to look at, when set.
SHOTS = os.environ.get("ARDENTIUM_SHOTS", "")


def keep(path, name):
    if SHOTS:
        os.makedirs(SHOTS, exist_ok=True)
        shutil.copy2(path, os.path.join(SHOTS, name))


NAMES = {2002: "Wavy Plane (GL2)", 2101: "Fractal Flame (GL3)", 2201: "GF OC Test (GL4)",
         2202: "Tessy Spheres on Plane (GL4)", 2203: "Tessy Spheres on Plane v2 (GL4)",
         2204: "Furry and Tessy Test (GL4)"}


def brightness(p):
    return (p[0] + p[1] + p[2]) // 3


def pixels(rows, box):
    x0, y0, x1, y1 = box
    return [rows[y][x] for y in range(y0, y1) for x in range(x0, x1)]


class GlApps(E2ETest):
    def run_app(self, test, load, *args, seconds=3.0):
        """Runs a test application until it has drawn for a while, then
        stops it with SIGTERM; returns (messages, stdout, picture rows)."""
        inst = self.install()
        proc = inst.start("/display_gui=0", "/run_mode=0", "/test3d=%d" % test, "/width=%d" % W, "/height=%d" % H,
                          "/headless", "/glapp_load=%s" % load, "/screenshot=shot.png", *SCENE_ONLY, *args)
        name = NAMES[test]
        self.wait_message(inst, proc, lambda m: m.startswith(name + " init ok ("), "the test's start")
        # Frames go on for a while: at least one FPS sample, however slow.
        deadline = time.time() + self.WAIT
        while time.time() < deadline and proc.poll() is None:
            time.sleep(seconds)
            break
        proc.send_signal(signal.SIGTERM)
        self.assertEqual(self.wait_exit(inst, proc), 0)
        out, err = inst.output(proc)
        msgs = inst.messages()
        self.assertIn("Test application selected: %s (%d)." % (name, test), msgs)
        self.assertIn("Main render thread - demo finished - exit ok.", msgs)
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
        m = re.search(r"Result: (.*?), OpenGL (\d), %dx%d, (\d+) frames in" % (W, H), out)
        self.assertTrue(m, out + err)
        self.assertEqual(m.group(1), name)
        self.assertGreater(int(m.group(3)), 0)
        shot = os.path.join(inst.work_dir, "shot.png")
        keep(shot, "glapp-%d%s.png" % (test, "-panel" if "/glapp_panel" in args else ""))
        w, h, rows = read_png(shot)
        self.assertEqual((w, h), (W, H))
        self.inst = inst
        return msgs, out, rows, int(m.group(2))

    def test_wavy_plane_is_a_lit_surface_that_is_not_flat(self):
        msgs, out, rows, api = self.run_app(2002, 96)
        self.assertEqual(api, 2)
        self.assertIn("Wavy Plane (GL2) init ok (96 x 96 vertices, 18050 triangles).", msgs)
        px = pixels(rows, CENTRE)
        blue = [p for p in px if p[2] > p[0] + 20 or brightness(p) > 150]
        self.assertGreater(len(blue), len(px) // 2)
        # Waves: the light falls at many angles, so the shading spreads wide;
        # a flat plane would give one shade per height band.
        levels = {brightness(p) // 8 for p in blue}
        self.assertGreater(len(levels), 12, sorted(levels))

    def test_fractal_flame_has_dark_ground_and_a_spread_of_brightness(self):
        msgs, out, rows, api = self.run_app(2101, 40000)
        self.assertEqual(api, 3)
        self.assertIn("Fractal Flame (GL3) init ok (40000 particles).", msgs)
        px = pixels(rows, (0, 0, W, H - 30))
        bins = [0, 0, 0, 0]
        for p in px:
            bins[min(3, max(p) // 64)] += 1
        # Log-density tone mapping: black where no particle fell, and every
        # band from faint to bright where they did.
        self.assertGreater(bins[0], len(px) // 5, bins)
        for b in bins[1:]:
            self.assertGreater(b, 30, bins)
        warm = count_pixels(rows, (0, 0, W, H - 30), lambda r, g, b: r > b + 30)
        self.assertGreater(warm, 100)

    def test_tessellated_sphere_fills_the_middle(self):
        msgs, out, rows, api = self.run_app(2201, 5, "/results_json=r.json", "/verify_every=4")
        self.assertEqual(api, 4)
        with open(os.path.join(self.inst.work_dir, "r.json")) as f:
            results = json.load(f)
        # The burn-in check draws the sphere itself, and a healthy device
        # draws it the same every time.
        self.assertIn("GF OC Test (GL4): the check frame is the test's own scene (at 1 s, with the parameters it started with).",
                      msgs)
        self.assertIn("Verification: reference frame drawn (256x144) at frame 1.", msgs)
        self.assertGreaterEqual(results["verification"]["checks"], 1, msgs[-10:])
        self.assertEqual(results["verification"]["errors"], 0, msgs[-10:])
        self.assertEqual((results["test"], results["api"], results["ending"]),
                         ("GF OC Test (GL4)", "OpenGL 4", "stability test"))
        self.assertGreater(results["frames"], 0)
        self.assertIn("GF OC Test (GL4) init ok (tessellation level 5, 20 sphere patches).", msgs)
        red = count_pixels(rows, CENTRE, lambda r, g, b: r > 2 * g and r > 60)
        self.assertGreater(red, (CENTRE[2] - CENTRE[0]) * (CENTRE[3] - CENTRE[1]) // 3)

    def check_spheres_on_plane(self, rows):
        red = count_pixels(rows, (0, 0, W, H), lambda r, g, b: r > 2 * g and r > 60)
        grey = count_pixels(rows, (0, 0, W, H), lambda r, g, b: abs(r - g) < 12 and abs(g - b) < 20 and r > 110)
        shadow = count_pixels(rows, (0, 0, W, H), lambda r, g, b: abs(r - g) < 12 and 20 < r < 80 and b >= r)
        self.assertGreater(red, 1500)
        self.assertGreater(grey, 3000)
        # The spheres' shadows darken the plane.
        self.assertGreater(shadow, 150, (red, grey, shadow))

    def test_spheres_on_a_plane_cast_soft_shadows(self):
        msgs, out, rows, api = self.run_app(2202, 3)
        self.assertIn("Tessy Spheres on Plane (GL4) init ok (tessellation level 3, 100 sphere patches, plane).", msgs)
        self.check_spheres_on_plane(rows)

    def test_spheres_on_a_tessellated_plane(self):
        msgs, out, rows, api = self.run_app(2203, 3)
        self.assertIn("Tessy Spheres on Plane v2 (GL4) init ok (tessellation level 3, 100 sphere patches, "
                      "tessellated plane).", msgs)
        self.check_spheres_on_plane(rows)

    def test_furry_tessellated_object(self):
        msgs, out, rows, api = self.run_app(2204, 3)
        self.assertIn("Furry and Tessy Test (GL4) init ok (tessellation level 3, 20 patches, 16 fur shells).", msgs)
        fur = count_pixels(rows, CENTRE, lambda r, g, b: r > g > b and r - b > 40)
        self.assertGreater(fur, (CENTRE[2] - CENTRE[0]) * (CENTRE[3] - CENTRE[1]) // 4)

    def test_parameter_panel_shown_over_the_scene(self):
        msgs, out, rows, api = self.run_app(2201, 4, "/glapp_panel")
        # The panel's title bar (the GUI's dark style) at the top right.
        bar = count_pixels(rows, (W - 240, 25, W, 60), lambda r, g, b: b > r + 40 and b > 90)
        self.assertGreater(bar, 500)
        self.assertNotIn("parameter panel could not start.", " ".join(msgs))


class GlAppLookup(E2ETest):
    def test_the_triangle_starts_from_the_launcher_only(self):
        inst = self.install()
        r = inst.run("/display_gui=0", "/test3d=2001", "/headless", timeout=self.WAIT)
        self.assertEqual(r.returncode, 2)
        self.assertIn("Triangle of Death (GL2) starts from the launcher only: nothing was started.", r.stderr)
        msgs = inst.messages()
        self.assertFalse(any(m.startswith("Test application selected") for m in msgs))

    def test_an_unknown_identifier_starts_nothing(self):
        inst = self.install()
        r = inst.run("/display_gui=0", "/test3d=2299", "/headless", timeout=self.WAIT)
        self.assertEqual(r.returncode, 2)
        self.assertIn("No test has the identifier 2299", r.stderr)
        msgs = inst.messages()
        self.assertFalse(any(m.startswith("Test application selected") for m in msgs))

    def test_an_opengl_3_driver_cannot_start_an_opengl_4_test(self):
        inst = self.install()
        r = inst.run("/display_gui=0", "/test3d=2202", "/run_mode=0", "/width=%d" % W, "/height=%d" % H, "/headless",
                     env={"MESA_GL_VERSION_OVERRIDE": "3.3"}, timeout=self.WAIT)
        self.assertEqual(r.returncode, 2, r.stdout + r.stderr)
        self.assertIn("Result: Tessy Spheres on Plane (GL4), OpenGL 4, %dx%d: could not start" % (W, H), r.stdout)
        msgs = inst.messages()
        self.assertIn("OpenGL initialization failed!", msgs)
        self.assertFalse(any(m.startswith("Tessy Spheres on Plane (GL4) init ok") for m in msgs))
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")

    def test_benchmark_mode_forces_a_minute_by_the_clock(self):
        inst = self.install()
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write('<?xml version="1.0"?>\n<ardentium>\n\t<settings time_based_benchmark="0" max_frames="5"'
                    ' max_time="2000"/>\n</ardentium>')
        proc = inst.start("/display_gui=0", "/run_mode=1", "/test3d=2002", "/width=%d" % W, "/height=%d" % H,
                          "/headless", "/glapp_load=32")
        msgs = self.wait_message(inst, proc, lambda m: m.startswith("Wavy Plane (GL2) init ok"), "the test's start")
        self.assertIn("Test application benchmark: time-based, 60000 ms (settings: time-based, 60000 ms).", msgs)
        proc.send_signal(signal.SIGTERM)
        # A benchmark stopped before its end says so in its exit code.
        self.assertEqual(self.wait_exit(inst, proc), 5)


@unittest.skipUnless(shutil.which("Xvfb") and shutil.which("xdotool"), "needs Xvfb and xdotool")
class TriangleFromTheLauncher(E2ETest):
    def test_the_launcher_runs_the_triangle_in_a_window(self):
        display = start_xvfb(self)
        inst = self.install()
        with open(inst.path("startup_options.xml"), "w") as f:
            f.write('<?xml version="1.0"?>\n<ardentium>\n\t<settings width="320" height="240" run_mode="0"'
                    ' launcher_test3d="2001" render_general_indicators="0" render_vxa_logo="0"'
                    ' render_a_logo="0"/>\n</ardentium>\n')
        state_path = os.path.join(inst.root, "launcher-state.txt")
        proc = inst.start("/launcher_state=" + state_path, "/screenshot=shot.png", env={"DISPLAY": display})
        self.addCleanup(lambda: proc.poll() is None and proc.kill())

        def wait_state(predicate, what):
            deadline = time.time() + self.WAIT
            while True:
                state = read_state(state_path)
                if state and predicate(state):
                    return state
                if proc.poll() is not None or time.time() > deadline:
                    self.fail_run(inst, proc, "no %s; state: %r" % (what, state))
                time.sleep(0.2)

        state = wait_state(lambda s: s.get("tab") == "tests" and "widget.start" in s, "tests tab")
        self.assertEqual(state["test3d"], "2001")
        self.assertEqual(state["test_name"], "Triangle of Death (GL2)")
        self.assertEqual(state["test_available"], "1")
        # Start with the keyboard-free path a script has: the start button.
        time.sleep(0.5)
        state = read_state(state_path)
        x, y, w, h = (int(v) for v in state["widget.start"].split(","))
        ox, oy = (int(v) for v in state["client_origin"].split(","))
        env = dict(os.environ, DISPLAY=display)
        subprocess.run(["xdotool", "mousemove", str(ox + x + w // 2), str(oy + y + h // 2)], env=env, check=True)
        subprocess.run(["xdotool", "mousedown", "1"], env=env, check=True)
        time.sleep(0.15)
        subprocess.run(["xdotool", "mouseup", "1"], env=env, check=True)
        # The run's title counts frames once a second.
        self.wait_title(display, inst, proc, r"^Ardentium - Triangle of Death \(GL2\) - FPS=\d+", timeout=120)
        # Ctrl+C during a run ends the run (as Escape does) and the launcher comes back.
        proc.send_signal(signal.SIGINT)
        wait_state(lambda s: s.get("runs") == "1" and s.get("running") == "0", "the end of the run")
        proc.send_signal(signal.SIGTERM)
        self.wait_exit(inst, proc)
        msgs = inst.messages()
        self.assertIn("Test application selected: Triangle of Death (GL2) (2001).", msgs)
        self.assertIn("Triangle of Death (GL2) init ok (1 triangle per frame).", msgs)
        self.assertIn("Main render thread - demo finished - exit ok.", msgs)
        keep(os.path.join(inst.work_dir, "shot.png"), "glapp-2001.png")
        w, h, rows = read_png(os.path.join(inst.work_dir, "shot.png"))
        self.assertEqual((w, h), (320, 240))
        # The triangle's three corners: red, green and blue, all saturated.
        box = (40, 30, 280, 200)
        for name, pred in (("red", lambda r, g, b: r > 150 and g < 90 and b < 90),
                           ("green", lambda r, g, b: g > 150 and r < 90 and b < 90),
                           ("blue", lambda r, g, b: b > 150 and r < 90 and g < 90)):
            self.assertGreater(count_pixels(rows, box, pred), 150, name)



@unittest.skipUnless(shutil.which("Xvfb") and shutil.which("xdotool"), "needs Xvfb and xdotool")
class PanelKeysInAWindow(E2ETest):
    def test_the_panel_changes_the_load_while_the_test_runs(self):
        display = start_xvfb(self)
        inst = self.install()
        proc = inst.start("/display_gui=0", "/run_mode=0", "/test3d=2002", "/width=%d" % W, "/height=%d" % H,
                          "/glapp_load=96", env={"DISPLAY": display})
        self.addCleanup(lambda: proc.poll() is None and proc.kill())
        wid, _ = self.wait_title(display, inst, proc, r"^Ardentium - Wavy Plane \(GL2\) - FPS=\d+")
        env = dict(os.environ, DISPLAY=display)

        def xdo(*args):
            return subprocess.run(["xdotool", *args], env=env, capture_output=True, text=True, timeout=30).stdout

        geometry = dict(l.strip().split(": ", 1) for l in xdo("getwindowgeometry", wid).splitlines()[1:])
        x, y = (int(v) for v in geometry["Position"].split()[0].split(","))
        # Keys go to the window under the pointer (no window manager).
        xdo("mousemove", str(x + W // 2), str(y + H // 2))
        time.sleep(0.3)
        for key in ("F2", "Down", "Right", "Right"):
            xdo("key", key)
            time.sleep(0.2)
        # Two steps of 128; a frame sees one or both.
        self.wait_message(inst, proc, lambda m: re.match(r"Wavy Plane \(GL2\): Vertices per side (96|224) -> 352\.$", m),
                          "the grid made finer")
        for key in ("Down", "Right"):
            xdo("key", key)
            time.sleep(0.2)
        self.wait_message(inst, proc, lambda m: m == "Wavy Plane (GL2): Wireframe 0 -> 1.", "wireframe on")
        xdo("key", "Escape")
        self.assertEqual(self.wait_exit(inst, proc), 0)
        out, err = inst.output(proc)
        self.assertRegex(out, r"Result: Wavy Plane \(GL2\), OpenGL 2, %dx%d, \d+ frames" % (W, H))
        self.assertIn("Main render thread - demo finished - exit ok.", inst.messages())


if __name__ == "__main__":
    unittest.main()
