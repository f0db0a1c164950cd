"""What the test scripts share about the build's test programs."""
import subprocess


def is_gtest(exe):
    """Whether exe is a GoogleTest binary: only those may be asked for their list, an example would run."""
    try:
        with open(exe, "rb") as binary:
            return b"gtest_list_tests" in binary.read()
    except OSError:
        return False


def list_cases(command, env=None, cwd=None):
    """The "Suite.Case" names a GoogleTest binary run as `command` (a list) would run."""
    listing = subprocess.run(command + ["--gtest_list_tests"], env=env, cwd=cwd, capture_output=True,
                             text=True).stdout
    cases, suite = [], None
    for line in listing.splitlines():
        if not line.startswith(" "):
            first = line.split()[0] if line.strip() else ""
            suite = first if first.endswith(".") else None
        elif suite:
            cases.append(suite + line.split()[0])
    return cases
