"""The Windows package (tools/package-win.sh): the zip a user downloads, unpacked
into a new folder and run in a Wine prefix of its own that nothing else has
touched, the nearest thing to a clean Windows these machines have."""
import os
import re
import shutil
import subprocess
import tempfile
import unittest
import zipfile

from ardtest import ClassScope, bright_yellow, count_pixels, csv_fields, read_png, start_xvfb

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)
WIN_BUILD = os.path.abspath(os.environ.get("ARDENTIUM_WIN_BUILD", os.path.join(SOURCE, "build-win")))
PACKAGE = os.path.join(SOURCE, "tools", "package-win.sh")
WINE_RUN = os.path.join(SOURCE, "tools", "wine-run.sh")


def project_version():
    """The version in the project's own CMakeLists.txt, read here rather than
    from the build folder the script reads it from."""
    with open(os.path.join(SOURCE, "CMakeLists.txt")) as f:
        return re.search(r"project\(Ardentium\s+VERSION\s+([0-9.]+)", f.read()).group(1)


def cache_value(build, name):
    with open(os.path.join(build, "CMakeCache.txt")) as f:
        for line in f:
            if line.startswith(name + ":"):
                return line.rstrip("\n").split("=", 1)[1]
    return ""


def package(build, *args):
    return subprocess.run(["bash", PACKAGE, *args, build], capture_output=True, text=True, timeout=120)


class CleanPrefix:
    """One X server and one fresh Wine prefix for the class, both gone at the end."""
    display = None
    wine_base = None

    @classmethod
    def set_up(cls, owner):
        if not shutil.which("Xvfb"):
            raise unittest.SkipTest("needs Xvfb")
        if not shutil.which("wine"):
            raise unittest.SkipTest("needs Wine")
        scope = ClassScope(owner)
        cls.display = start_xvfb(scope)
        cls.wine_base = tempfile.mkdtemp(prefix="ard-pkg-wine-")
        scope.addCleanup(shutil.rmtree, cls.wine_base, True)
        # Stops this prefix's Wine server before its folder and the X server go.
        scope.addCleanup(lambda: subprocess.run([WINE_RUN, "--stop"], env=cls.env(), timeout=60,
                                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))

    @classmethod
    def env(cls):
        env = dict(os.environ)
        env["DISPLAY"] = cls.display
        env["ARDENTIUM_WINEPREFIX"] = cls.wine_base
        return env

    @classmethod
    def run(cls, program, *args, cwd, timeout=120):
        return subprocess.run([WINE_RUN, program, *args], cwd=cwd, env=cls.env(), capture_output=True,
                              text=True, timeout=timeout)


class FakeBuild:
    """A Windows build folder made of small programs from the build's own
    cross compiler, to see what the script does with other imports."""

    def __init__(self, test):
        self.cc = cache_value(WIN_BUILD, "CMAKE_C_COMPILER")
        self.cxx = cache_value(WIN_BUILD, "CMAKE_CXX_COMPILER")
        if not (self.cc and shutil.which(self.cc) and self.cxx and shutil.which(self.cxx)):
            test.skipTest("no MinGW-w64 compiler recorded in " + WIN_BUILD)
        self.root = tempfile.mkdtemp(prefix="ard-pkg-fake-")
        test.addCleanup(shutil.rmtree, self.root, True)
        self.build = os.path.join(self.root, "build")
        os.makedirs(os.path.join(self.build, "data", "Graphics"))
        with open(os.path.join(self.build, "data", "Graphics", "picture.png"), "wb") as f:
            f.write(b"\x89PNG not really")
        with open(os.path.join(self.build, "CMakeCache.txt"), "w") as f:
            f.write("CMAKE_PROJECT_VERSION:STATIC=7.1.3\n")
            f.write("CMAKE_CXX_COMPILER:STRING=%s\n" % self.cxx)

    def compile(self, compiler, source, output, *flags):
        src = os.path.join(self.root, os.path.basename(output) + (".cpp" if compiler == self.cxx else ".c"))
        with open(src, "w") as f:
            f.write(source)
        r = subprocess.run([compiler, "-O1", "-o", output, src, *flags], capture_output=True, text=True,
                           timeout=120)
        assert r.returncode == 0, r.stderr
        return output

    def zip_path(self):
        return os.path.join(self.build, "ardentium-7.1.3-win64.zip")


class WindowsPackage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        CleanPrefix.set_up(cls)

    def tmpdir(self, prefix):
        d = tempfile.mkdtemp(prefix=prefix)
        self.addCleanup(shutil.rmtree, d, True)
        return d

    def test_unpacked_package_runs_a_benchmark_in_a_fresh_prefix(self):
        zip_path = os.path.join(WIN_BUILD, "ardentium-%s-win64.zip" % project_version())
        if os.path.exists(zip_path):
            os.remove(zip_path)
        r = package(WIN_BUILD)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn(zip_path, r.stdout)

        with zipfile.ZipFile(zip_path) as z:
            self.assertIsNone(z.testzip())
            names = z.namelist()
            self.assertTrue(all(n.startswith("Ardentium/") for n in names), names)
            for name in ("ardentium.exe", "adata.dll", "README.txt"):
                self.assertIn("Ardentium/" + name, names)
            # The data folder as the program reads it, byte for byte; none
            # of the build's own files that live there.
            data = os.path.join(WIN_BUILD, "data")
            for sub in ("Graphics", "Fonts"):
                for name in os.listdir(os.path.join(data, sub)):
                    with open(os.path.join(data, sub, name), "rb") as f:
                        self.assertEqual(z.read("Ardentium/data/%s/%s" % (sub, name)), f.read(), name)
            self.assertIn("Ardentium/data/Graphics/bg.jpg", names)
            leftovers = [n for n in names if re.search(r"CMakeFiles|\.cmake$|\.a$|adata\.bin|test_pattern", n)]
            self.assertEqual(leftovers, [])
            readme = z.read("Ardentium/README.txt").decode("ascii")
            self.assertIn("Ardentium %s" % project_version(), readme)
            self.assertIn("ardentium.exe /display_gui=0", readme)
            self.assertIn("\r\n", readme)
            unpacked = self.tmpdir("ard-pkg-unpacked-")
            z.extractall(unpacked)

        # Started from its own folder, as a user who unpacked it would.
        program_dir = os.path.join(unpacked, "Ardentium")
        # The animation held at one moment and a view size the other Wine
        # tests use: some frames of the scene take the software renderer
        # minutes at some sizes and moments, which is not what this test is about.
        log_path = os.path.join(program_dir, "ardentium_log.txt")

        def event_log():
            if not os.path.exists(log_path):
                return ""
            with open(log_path, "rb") as f:
                return f.read().decode("latin-1")
        try:
            res = CleanPrefix.run(os.path.join(program_dir, "ardentium.exe"), "/display_gui=0", "/test3d=2003",
                                  "/run_mode=1", "/max_time=1500", "/width=480", "/height=300", "/log_score",
                                  "/render_a_logo=0", "/animation_time=2.0", "/screenshot=shot.png", cwd=program_dir)
        except subprocess.TimeoutExpired as e:
            self.fail("the benchmark did not end in %s s\n--- event log:\n%s" % (e.timeout, event_log()))
        log = event_log()
        self.assertEqual(res.returncode, 0, "%s%s\n--- event log:\n%s" % (res.stdout, res.stderr, log))
        self.assertTrue(os.path.isfile(os.path.join(CleanPrefix.wine_base, "display", "system.reg")),
                        "the run did not use the test's own Wine prefix")

        lines = log.split("\r\n")
        msgs = [l.split(" >> ", 1)[1] for l in lines if " >> " in l]
        self.assertIn("Main render thread - benchmark finished - exit ok.", msgs)
        self.assertEqual(msgs[-1], "Exit from VXA Ardentium.")
        # The pictures came from the packaged data folder.
        self.assertIn("Default background image loaded OK.", msgs)
        self.assertIn("Default fur image loaded OK.", msgs)
        self.assertEqual([m for m in msgs if "loading failed" in m], [])

        with open(os.path.join(program_dir, "Ardentium_Scores.csv"), "rb") as f:
            rows = [row for row in f.read().split(b"\r\n") if row]
        self.assertEqual(len(rows), 2, rows)
        self.assertTrue(rows[1].startswith(b"Furry VXA GL2,"), rows[1])
        self.assertEqual(len(csv_fields(rows[1])), len(csv_fields(rows[0])))

        # Wine has no Arial: the heading's yellow text is drawn with the
        # packaged font or not at all.
        width, height, pixels = read_png(os.path.join(program_dir, "shot.png"))
        self.assertGreater(width, 100)
        self.assertGreater(height, 50)
        self.assertGreater(count_pixels(pixels, (0, 0, width, min(height, 60)), bright_yellow), 60)

    def test_runtime_dlls_are_found_and_bundled(self):
        # Linked without the static runtime: the program needs libstdc++ and
        # libgcc_s, and those in turn winpthreads, which only reading the
        # DLLs' own imports reveals.
        fake = FakeBuild(self)
        exe = fake.compile(fake.cxx, '#include <cstdio>\n#include <string>\n#include <thread>\n'
                           'int main() { std::string s; std::thread t([&] { s = "threads ok"; }); t.join();\n'
                           '  std::printf("%s\\n", s.c_str()); return 0; }\n',
                           os.path.join(fake.build, "ardentium.exe"))
        fake.compile(fake.cc, "__declspec(dllexport) int Mesh_GetNumFaces(void) { return 3; }\n",
                     os.path.join(fake.build, "adata.dll"), "-shared")

        r = package(fake.build)
        self.assertEqual(r.returncode, 0, r.stderr)
        with zipfile.ZipFile(fake.zip_path()) as z:
            names = set(z.namelist())
            unpacked = self.tmpdir("ard-pkg-fake-unpacked-")
            z.extractall(unpacked)
        for dll in ("libstdc++-6.dll", "libgcc_s_seh-1.dll", "libwinpthread-1.dll"):
            self.assertIn("Ardentium/" + dll, names)
        self.assertIn("Ardentium/data/Graphics/picture.png", names)
        self.assertIn("libwinpthread-1.dll (imported by", r.stdout)

        # The bundled DLLs are what makes it start: the same program alone
        # in a folder does not, in the same prefix.
        program_dir = os.path.join(unpacked, "Ardentium")
        res = CleanPrefix.run(os.path.join(program_dir, "ardentium.exe"), cwd=program_dir)
        self.assertEqual(res.returncode, 0, res.stderr)
        self.assertEqual(res.stdout.strip(), "threads ok")
        alone = self.tmpdir("ard-pkg-alone-")
        shutil.copy2(exe, alone)
        res = CleanPrefix.run(os.path.join(alone, "ardentium.exe"), cwd=alone)
        self.assertNotEqual(res.returncode, 0)
        self.assertNotIn("threads ok", res.stdout)


class PackageScriptRefuses(unittest.TestCase):
    """What the script says when it cannot make a package that would run."""

    def test_unknown_dll_fails_naming_it(self):
        fake = FakeBuild(self)
        other = os.path.join(fake.root, "ardmissing.dll")
        fake.compile(fake.cc, "__declspec(dllexport) int Missing(void) { return 2; }\n", other, "-shared")
        fake.compile(fake.cc, "__declspec(dllimport) int Missing(void);\n"
                     "__declspec(dllexport) int Mesh_GetNumFaces(void) { return Missing(); }\n",
                     os.path.join(fake.build, "adata.dll"), "-shared", other)
        fake.compile(fake.cc, "int main(void) { return 0; }\n", os.path.join(fake.build, "ardentium.exe"),
                     "-static")
        r = package(fake.build)
        self.assertEqual(r.returncode, 1)
        self.assertIn("ardmissing.dll (imported by adata.dll) is not a Windows system DLL", r.stderr)
        self.assertFalse(os.path.exists(fake.zip_path()))
        self.assertEqual([n for n in os.listdir(fake.build) if n.endswith((".zip", ".part"))], [])

        # Found once it sits in the build folder, like the project's own DLLs.
        shutil.copy2(other, fake.build)
        r = package(fake.build)
        self.assertEqual(r.returncode, 0, r.stderr)
        with zipfile.ZipFile(fake.zip_path()) as z:
            self.assertIn("Ardentium/ardmissing.dll", z.namelist())

    def test_delay_loaded_imports_are_refused(self):
        # Such a DLL is not in the import table the script reads, yet the
        # program fails without it the first time it calls into it.
        fake = FakeBuild(self)
        dlltool = cache_value(WIN_BUILD, "CMAKE_DLLTOOL")
        if not (dlltool and shutil.which(dlltool)):
            self.skipTest("no dlltool recorded in " + WIN_BUILD)
        defs = os.path.join(fake.root, "later.def")
        with open(defs, "w") as f:
            f.write("EXPORTS\nLater\n")
        lib = os.path.join(fake.root, "liblater.a")
        subprocess.run([dlltool, "-d", defs, "-D", "later.dll", "-y", lib], check=True, timeout=60)
        fake.compile(fake.cc, "__declspec(dllimport) int Later(void);\nint main(void) { return Later(); }\n",
                     os.path.join(fake.build, "ardentium.exe"), lib)
        fake.compile(fake.cc, "int f(void) { return 0; }\n", os.path.join(fake.build, "adata.dll"), "-shared")
        r = package(fake.build)
        self.assertEqual(r.returncode, 1, r.stdout)
        self.assertIn("ardentium.exe has delay-loaded imports", r.stderr)
        self.assertFalse(os.path.exists(fake.zip_path()))

    def test_folder_that_is_not_a_windows_build(self):
        r = package(os.path.join(tempfile.gettempdir(), "ard-no-such-build-folder"))
        self.assertEqual(r.returncode, 1)
        self.assertIn("no build folder", r.stderr)

        fake = FakeBuild(self)
        r = package(fake.build)
        self.assertEqual(r.returncode, 1)
        self.assertIn("ardentium.exe is missing", r.stderr)

        # A Linux program under the Windows name.
        if not shutil.which("cc"):
            return
        fake.compile("cc", "int main(void) { return 0; }\n", os.path.join(fake.build, "ardentium.exe"))
        fake.compile(fake.cc, "int f(void) { return 0; }\n", os.path.join(fake.build, "adata.dll"), "-shared")
        r = package(fake.build)
        self.assertEqual(r.returncode, 1)
        self.assertIn("is not a 64-bit Windows program", r.stderr)


if __name__ == "__main__":
    unittest.main()
