"""The benchmark music on Linux: the real player and OpenAL Soft, whose wave
output driver writes what would have been heard to a WAV file that sox
measures.

The music is started and fed the way the AMark benchmark does it. Until the
benchmark exists the runs use the build's audio_play; MUSIC_PROGRAM,
WITH_MESH_LIBRARY, music_args() and RUN_END are the only things to change to
run the benchmark instead (the program with its test and a time limit of the
same seconds, and the log line that ends its run)."""
import os
import shutil
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
