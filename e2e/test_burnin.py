"""Burn-in error detection, GPU choice and the per-second frame log, as a
script that drives the program sees them: exit codes, the event log, the
JSON results, the CSV and the HUD in a screenshot."""
import csv
import json
import os
import re
import unittest

from ardtest import E2ETest, count_pixels, read_png

# Small views, no logos, the animation held (see test_runner.py); a check
# every few frames so that even a slow software renderer makes several.
RUN = ["/display_gui=0", "/test3d=2003", "/width=320", "/height=180", "/render_vxa_logo=0", "/render_a_logo=0",
       "/animation_time=3.0", "/headless", "/run_mode=1", "/max_time=1500", "/verify_every=3"]


def red_text(r, g, b):
    return r > 180 and g < 60 and b < 60


def green_text(r, g, b):
    return g > 180 and r < 80 and b < 80


class BurnInChecks(E2ETest):
    def check_line_box(self, w, h):
        """Where the HUD writes the picture checks' line: bottom left."""
        return (0, h - 30, w // 2, h)

    def test_injected_fault_is_reported_everywhere_and_an_unwritable_frame_log_too(self):
        inst = self.install()
        r = inst.run(*RUN, "/verify_fault=1", "/results_json=result.json", "/screenshot=shot.png",
                     "/log_frames=no-such-folder/frames.csv", timeout=300)
        msgs = inst.messages()
        # Verification errors outrank the unwritten log in the exit code.
        self.assertEqual(r.returncode, 6, r.stderr + "\n".join(msgs[-15:]))
        self.assertIn("Verification: reference frame drawn (256x144) at frame 1.", msgs)
        errors = [m for m in msgs if m.startswith("Verification error at frame ")]
        self.assertEqual(len(errors), 1, msgs[-20:])
        m = re.match(r"^Verification error at frame 4: (\d+) of 36864 pixels differ from the reference, "
                     r"largest difference (\d+)\.$", errors[0])
        self.assertIsNotNone(m, errors[0])
        self.assertGreater(int(m.group(1)), 0)
        self.assertTrue(any(re.match(r"^Unable to write the frame log \[.*no-such-folder/frames\.csv\]: ", x) for x in msgs))

        with open(os.path.join(inst.work_dir, "result.json")) as f:
            result = json.load(f)
        v = result["verification"]
        self.assertEqual(v["errors"], 1)
        self.assertGreaterEqual(v["checks"], 2)
        self.assertEqual([x["frame"] for x in v["mismatches"]], [4])
        self.assertEqual(v["mismatches"][0]["pixels"], int(m.group(1)))
        self.assertEqual(v["mismatches"][0]["largest_difference"], int(m.group(2)))
        self.assertIn("Verification: 1 of %d picture checks differed from the reference" % v["checks"], result["errors"])
        self.assertTrue(any(e.startswith("Unable to write the frame log") for e in result["errors"]))

        # The last frame shows the error count in red.
        w, h, pixels = read_png(os.path.join(inst.work_dir, "shot.png"))
        box = self.check_line_box(w, h)
        self.assertGreater(count_pixels(pixels, box, red_text), 30)
        self.assertLess(count_pixels(pixels, box, green_text), 5)

    def test_clean_run_has_no_errors_and_its_frame_log_matches_the_results(self):
        inst = self.install()
        r = inst.run(*RUN, "/gpu=1", "/results_json=result.json", "/screenshot=shot.png", "/log_frames=frames.csv",
                     timeout=300)
        msgs = inst.messages()
        self.assertEqual(r.returncode, 0, r.stderr + "\n".join(msgs[-15:]))
        self.assertFalse([m for m in msgs if m.startswith("Verification error")])
        self.assertTrue(any(re.match(r"^Verification: \d+ checks, 0 errors\.$", m) for m in msgs), msgs[-10:])
        # The software renderer has compute shaders: the arithmetic is checked too.
        self.assertIn("Verification: compute check of 4096 values against the processor's active.", msgs)
        # The one GPU of a software renderer is EGL's software device.
        self.assertTrue(any(re.match(r"^OpenGL: drawing on GPU 1 \(.+\) through EGL device \d+ of \d+\.$", m)
                            for m in msgs), msgs[-30:])
        with open(os.path.join(inst.work_dir, "result.json")) as f:
            result = json.load(f)
        self.assertEqual(result["verification"]["errors"], 0)
        self.assertTrue(result["verification"]["compute_check"])
        self.assertEqual(result["verification"]["mismatches"], [])
        self.assertGreaterEqual(result["verification"]["checks"], 2)
        self.assertEqual(result["errors"], [])

        with open(os.path.join(inst.work_dir, "frames.csv"), newline="") as f:
            rows = list(csv.reader(f))
        header, rows = rows[0], rows[1:]
        self.assertEqual(header[:6], ["time_s", "phase", "frames", "fps", "frame_time_p50_ms", "frame_time_p99_ms"])
        gpus = (len(header) - 6) // 5
        self.assertEqual(len(header), 6 + 5 * gpus)
        self.assertEqual(gpus, len(result["gpus"]))
        for i in range(gpus):
            self.assertEqual(header[6 + 5 * i], "gpu%d_temperature_c" % (i + 1))
        measured = [row for row in rows if row[1] == "measured"]
        self.assertTrue(all(row[1] in ("warm-up", "measured") for row in rows), rows)
        self.assertGreaterEqual(len(rows) - len(measured), 3)  # the 4 s warm-up
        # One row per sample of the results' series, with the same frames.
        self.assertEqual([int(row[2]) for row in measured], result["fps_per_second"])
        self.assertLessEqual(sum(int(row[2]) for row in measured), result["frames"])
        times = [float(row[0]) for row in rows]
        self.assertEqual(times, sorted(times))
        for row in rows:
            self.assertEqual(len(row), len(header), row)
            p50, p99 = float(row[4]), float(row[5])
            if int(row[2]) > 1:
                self.assertGreater(p50, 0.0, row)
                self.assertGreaterEqual(p99, p50, row)
            for value in row[6:]:
                self.assertTrue(value == "n.a." or float(value) >= 0.0, row)
        # A reading the results have a range for is a number in the log.
        for i, gpu in enumerate(result["gpus"]):
            if "temperature_c" in gpu["sensors"]:
                self.assertTrue(all(row[6 + 5 * i] != "n.a." for row in measured))

        w, h, pixels = read_png(os.path.join(inst.work_dir, "shot.png"))
        box = self.check_line_box(w, h)
        self.assertGreater(count_pixels(pixels, box, green_text), 30)
        self.assertLess(count_pixels(pixels, box, red_text), 5)

    def test_gpu_index_out_of_range_starts_nothing(self):
        inst = self.install()
        r = inst.run("/display_gui=0", "/test3d=2003", "/headless", "/gpu=9", timeout=120)
        self.assertEqual(r.returncode, 2, r.stderr)
        self.assertRegex(r.stderr, r"GPU 9 does not exist: this machine has \d+ GPU\(s\), numbered 1 to \d+ by /list_gpus\.")
        msgs = inst.messages()
        self.assertTrue(any(m.startswith("GPU 9 does not exist") for m in msgs))
        self.assertFalse([m for m in msgs if "context init ok" in m])
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
        # The listing numbers the GPUs the way /gpu= counts them.
        listing = inst.run("/list_gpus", timeout=120)
        count = int(re.search(r"^GPUs: (\d+)$", listing.stdout, re.M).group(1))
        self.assertEqual(re.findall(r"^GPU (\d+): ", listing.stdout, re.M), [str(i) for i in range(1, count + 1)])


if __name__ == "__main__":
    unittest.main()
