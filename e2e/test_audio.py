"""The benchmark music on Linux: the real player and OpenAL Soft, whose wave
output driver writes what would have been heard to a WAV file that sox
measures.

One test runs the OpenGL 4 benchmark itself. The others use the build's
audio_play, which starts and feeds the music with the same calls the benchmark
makes, so each case takes seconds instead of a benchmark run."""
import os
import shutil
import time
import unittest

import ardtest
from ardtest import sox_rms_db, soxi

MUSIC_PROGRAM = "audio_play"
WITH_MESH_LIBRARY = False
# The start of the event-log line that says the run has finished.
RUN_END = "audio_play: done"
TEST_TRACKS = os.path.join(ardtest.BUILD, "audio-test-data")
RECORDER = os.path.join(ardtest.BUILD, "audio-fakes", "libal_recorder.so")


def music_args(seconds, *switches):
    """The command line of a run that plays music for about `seconds`."""
    return ["--seconds", str(seconds), *switches]


@unittest.skipUnless(shutil.which("sox"), "sox is not installed")
class MusicTest(ardtest.E2ETest):
    def music_install(self, track=None):
        """A program folder whose "Audio/zik.ogg" is the built track, another
        file, or missing (track="")."""
        inst = self.install(with_library=WITH_MESH_LIBRARY, program=MUSIC_PROGRAM)
        target = inst.path("data", "Audio", "zik.ogg")
        if track == "":
            os.remove(target)
        elif track is not None:
            shutil.copy2(track, target)
        return inst

    def wave_env(self, inst, drivers="wave", **extra):
        """OpenAL Soft writing to a WAV file in the install's folder."""
        wav = os.path.join(inst.root, "out.wav")
        conf = os.path.join(inst.root, "alsoft.conf")
        with open(conf, "w") as f:
            f.write("[general]\ndrivers = %s\n[wave]\nfile = %s\n" % (drivers, wav))
        env = {"ALSOFT_CONF": conf, "ALSOFT_LOGLEVEL": "0"}
        env.update(extra)
        return env, wav

    def play(self, inst, seconds, *switches, env=None):
        r = inst.run(*music_args(seconds, *switches), env=env, timeout=seconds + 60)
        self.assertEqual(r.returncode, 0, r.stderr)
        messages = inst.messages()
        self.assertTrue(any(m.startswith(RUN_END) for m in messages), messages)
        return messages

    def assert_logged(self, messages, text):
        self.assertTrue(any(text in m for m in messages), "%r not in the event log:\n%s" % (text, "\n".join(messages)))

    def test_track_is_heard_for_as_long_as_the_run(self):
        inst = self.music_install()
        env, wav = self.wave_env(inst)
        messages = self.play(inst, 4, env=env)
        self.assertIn("Init OpenAL - Available audio devices: OpenAL Soft.", messages)
        self.assertIn("Init OpenAL - Default audio device: OpenAL Soft.", messages)
        for line in ("Ogg Vorbis file information: ", "- channels: 2 ", "- rate (hz): 44100 ",
                     "- user comment 0: TITLE=Burn-in Loop"):
            self.assertIn(line, messages)
        self.assertEqual(soxi(wav, "-c"), "2")
        self.assertEqual(soxi(wav, "-r"), "44100")
        length = float(soxi(wav, "-D"))
        self.assertGreater(length, 3.0)
        self.assertLess(length, 7.0)
        self.assertGreater(sox_rms_db(wav), -35.0, "the wave output is (nearly) silent")
        # Heard to the end, not only at the start.
        self.assertGreater(sox_rms_db(wav, "trim", "2.5", "1"), -35.0)

    def test_the_benchmark_plays_the_track_while_it_runs(self):
        # The OpenGL 4 benchmark itself, cut to its simulation stage of two
        # seconds at a small size: the player is started with the run, fed by
        # its frames and stopped with it.
        inst = self.install()
        env, wav = self.wave_env(inst)
        started = time.monotonic()
        r = inst.run("/display_gui=0", "/headless", "/test3d=2206", "/run_mode=1", "/width=160", "/height=90",
                     "/dmsize=256", "/amark_stages=4", "/amark_stage_seconds=2", env=env, timeout=300)
        wall = time.monotonic() - started
        self.assertEqual(r.returncode, 0, r.stderr)
        messages = inst.messages()
        self.assertIn("Main render thread - benchmark finished - exit ok.", messages)
        self.assertIn("- user comment 0: TITLE=Burn-in Loop", messages)
        self.assertEqual(soxi(wav, "-c"), "2")
        self.assertEqual(soxi(wav, "-r"), "44100")
        # Heard from the benchmark's start to its end: the 4 s warm-up and the
        # stage at least, never longer than the process lived.
        length = float(soxi(wav, "-D"))
        self.assertGreater(length, 5.0)
        self.assertLess(length, wall + 1.0)
        self.assertGreater(sox_rms_db(wav), -35.0, "the wave output is (nearly) silent")
        self.assertGreater(sox_rms_db(wav, "trim", "4.5", "1"), -35.0, "silent during the stage")

    def test_short_track_loops(self):
        # 1.875 s of music played for 5 s: the rest must come from starting over.
        inst = self.music_install(os.path.join(TEST_TRACKS, "one_bar_stereo.ogg"))
        env, wav = self.wave_env(inst)
        messages = self.play(inst, 5, env=env)
        self.assertFalse([m for m in messages if "ERROR" in m], messages)
        self.assertGreater(float(soxi(wav, "-D")), 4.0)
        for start in ("0.5", "2.5", "3.8"):
            self.assertGreater(sox_rms_db(wav, "trim", start, "1"), -35.0, "silent from %s s" % start)

    def test_mono_track_plays_as_mono(self):
        inst = self.music_install(os.path.join(TEST_TRACKS, "one_bar_mono.ogg"))
        env, wav = self.wave_env(inst)
        messages = self.play(inst, 2, env=env)
        self.assertIn("- channels: 1 ", messages)
        self.assertIn("- rate (hz): 22050 ", messages)
        self.assertGreater(sox_rms_db(wav), -35.0)

    def test_no_music_makes_no_openal_call(self):
        inst = self.music_install()
        record = os.path.join(inst.root, "al-calls.txt")
        env, wav = self.wave_env(inst, LD_PRELOAD=RECORDER, ARDENTIUM_AL_RECORD=record)
        messages = self.play(inst, 1, "/no_music", env=env)
        self.assertFalse(os.path.exists(record), "OpenAL was called with /no_music")
        self.assertFalse([m for m in messages if "OpenAL" in m or "vorbis" in m.lower()], messages)
        self.assertFalse(os.path.exists(wav), "the wave driver was opened")
        # The same run with music: the recorder sees the calls.
        self.play(inst, 1, env=env)
        with open(record) as f:
            calls = f.read().split()
        for name in ("alcOpenDevice", "alcCreateContext", "alSourcePlay", "alSourceStop", "alcCloseDevice"):
            self.assertIn(name, calls)

    def test_failures_are_logged_and_the_run_goes_on(self):
        cases = [
            ("missing file", "", {}, "ERROR: unable to open the vorbis file (%s)."),
            ("not Ogg", "text", {}, "ERROR: unable to open the vorbis file (%s: "),
            ("no device", None, {"drivers": "nosuchdriver"}, "Init OpenAL error."),
            ("no context", None, {"ARDENTIUM_AL_FAIL": "alcCreateContext"}, "Init OpenAL error (unable to create a ctx)."),
            ("context not current", None, {"ARDENTIUM_AL_FAIL": "alcMakeContextCurrent"},
             "Init OpenAL error (unable to set active ctx)."),
            ("damaged", "damaged", {}, "ERROR decoding vorbis file (%s: "),
        ]
        for what, track, extra, line in cases:
            with self.subTest(what):
                inst = self.music_install(None if track in ("text", "damaged") else track)
                target = inst.path("data", "Audio", "zik.ogg")
                if track == "text":
                    with open(target, "w") as f:
                        f.write("not an Ogg file\n")
                elif track == "damaged":
                    # A stretch garbled 3 s into 15 s: the first refill reaches it.
                    data = bytearray(open(os.path.join(TEST_TRACKS, "eight_bars_stereo.ogg"), "rb").read())
                    at = len(data) // 5
                    data[at:at + 1500] = bytes((i * 7) & 255 for i in range(1500))
                    with open(target, "wb") as f:
                        f.write(data)
                extra = dict(extra)
                drivers = extra.pop("drivers", "wave")
                env, _ = self.wave_env(inst, drivers=drivers, **extra)
                if "ARDENTIUM_AL_FAIL" in extra:
                    env["LD_PRELOAD"] = RECORDER
                messages = self.play(inst, 3, env=env)
                self.assert_logged(messages, line.replace("%s", target))


if __name__ == "__main__":
    unittest.main()
