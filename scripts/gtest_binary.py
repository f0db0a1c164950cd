"""What the test scripts share about the build's test programs."""


def is_gtest(exe):
    """Whether exe is a GoogleTest binary: only those may be asked for their list, an example would run."""
    try:
        with open(exe, "rb") as binary:
            return b"gtest_list_tests" in binary.read()
    except OSError:
        return False
