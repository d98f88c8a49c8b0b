"""The benchmark music of the Windows build under Wine. OpenAL32.dll is not
part of Windows: without it the run logs so and goes on in silence; with the
project's fake OpenAL32.dll, which writes what it is given to a WAV file, the
track arrives whole and in real time.

As on Linux, the runs use the build's audio_play.exe until the AMark
benchmark exists; PROGRAM, music_args() and RUN_END are what to change then."""
import array
import os
import shutil
import subprocess
import tempfile
import unittest

from ardtest import sox_rms_db, soxi

HERE = os.path.dirname(os.path.abspath(__file__))
WIN_BUILD = os.environ.get("ARDENTIUM_WIN_BUILD", os.path.join(HERE, "..", "build-win"))
WINE_RUN = os.path.join(HERE, "..", "tools", "wine-run.sh")
PROGRAM = "audio_play.exe"
RUN_END = "audio_play: done"
FAKE_OPENAL = os.path.join(WIN_BUILD, "audio-fakes", "OpenAL32.dll")


def music_args(seconds, *switches):
    return ["--seconds", str(seconds), *switches]


def windows_path(path):
    """The Wine name of a Linux path (Z: is the root)."""
    return "Z:" + path.replace("/", "\\")


def samples(path, seconds):
    """The first seconds of a sound file as 16-bit samples, decoded by sox."""
    raw = subprocess.run(["sox", path, "-t", "s16", "-", "trim", "0", str(seconds)], capture_output=True,
                         check=True).stdout
    return array.array("h", raw)


@unittest.skipUnless(shutil.which("sox"), "sox is not installed")
class WineMusic(unittest.TestCase):
    def install(self, with_openal):
        root = tempfile.mkdtemp(prefix="ard-wine-audio-")
        self.addCleanup(shutil.rmtree, root, True)
        prog = os.path.join(root, "prog")
        work = os.path.join(root, "work")
        os.makedirs(prog)
        os.makedirs(work)
        shutil.copy2(os.path.join(WIN_BUILD, PROGRAM), prog)
        shutil.copytree(os.path.join(WIN_BUILD, "data"), os.path.join(prog, "data"))
        if with_openal:
            shutil.copy2(FAKE_OPENAL, prog)
        return root, prog, work

    def play(self, root, prog, work, seconds, *switches):
        wav = os.path.join(root, "out.wav")
        env = dict(os.environ)
        env.pop("DISPLAY", None)
        env["ARDENTIUM_FAKE_OPENAL_WAV"] = windows_path(wav)
        # Only the DLL beside the program, never one Wine might offer.
        env["WINEDLLOVERRIDES"] = env.get("WINEDLLOVERRIDES", "") + ";openal32=n"
        r = subprocess.run([WINE_RUN, os.path.join(prog, PROGRAM), *music_args(seconds, *switches)], cwd=work,
                           capture_output=True, text=True, timeout=seconds + 120, env=env)
        self.assertEqual(r.returncode, 0, r.stderr)
        with open(os.path.join(work, "ardentium_log.txt"), "rb") as f:
            lines = f.read().decode("latin-1").split("\r\n")
        messages = [l.split(" >> ", 1)[1] for l in lines if " >> " in l]
        self.assertTrue(any(m.startswith(RUN_END) for m in messages), messages)
        return messages, wav

    def test_track_reaches_the_fake_device(self):
        root, prog, work = self.install(with_openal=True)
        messages, wav = self.play(root, prog, work, 4)
        self.assertIn("Init OpenAL - Available audio devices: Fake WAV Output.", messages)
        self.assertIn("Init OpenAL - Default audio device: Fake WAV Output.", messages)
        self.assertIn("- user comment 0: TITLE=Burn-in Loop", messages)
        self.assertEqual(soxi(wav, "-c"), "2")
        self.assertEqual(soxi(wav, "-r"), "44100")
        # Everything queued is written: the run's length plus the two
        # buffers (about 3 s) queued ahead.
        length = float(soxi(wav, "-D"))
        self.assertGreater(length, 4.0)
        self.assertLess(length, 9.0)
        self.assertGreater(sox_rms_db(wav), -35.0)
        # The samples are the track's, from its first one on (the Windows
        # decoder against sox's, a rounding apart at most).
        heard = samples(wav, 2)
        track = samples(os.path.join(prog, "data", "Audio", "zik.ogg"), 2)
        self.assertEqual(len(heard), len(track))
        self.assertLessEqual(max(abs(a - b) for a, b in zip(heard, track)), 2)

    def test_missing_openal_is_logged_and_the_run_goes_on(self):
        root, prog, work = self.install(with_openal=False)
        messages, wav = self.play(root, prog, work, 1)
        self.assertIn("Init OpenAL error - OpenAL32.dll is not installed: the benchmark runs without music.",
                      messages)
        self.assertFalse(os.path.exists(wav))

    def test_no_music_leaves_openal_alone(self):
        root, prog, work = self.install(with_openal=True)
        messages, wav = self.play(root, prog, work, 1, "/no_music")
        self.assertFalse([m for m in messages if "OpenAL" in m], messages)
        self.assertFalse(os.path.exists(wav), "the device was opened")


if __name__ == "__main__":
    unittest.main()
