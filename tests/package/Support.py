"""What the tests of the package share."""
import re
import subprocess

# The line that the hosts here print for an upload when nobody is signed in.
ERROR_WITHOUT_IDENTITY = "[Error] miss userId or accessToken 102\n"
# A host whose callback is not called would run for ever.
HOST_SECONDS = 60


def run(*command, **options):
    """The output of a command that must succeed."""
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}\n{done.stdout}")
    return done.stdout


def hardening(file):
    """Which of the usual protections a program or shared library carries."""
    header, segments, dynamic = (run("readelf", option, file) for option in ("-hW", "-lW", "-dW"))
    undefined = run("nm", "-D", "--undefined-only", file)
    found = {
        "position-independent": re.search(r"Type: +DYN ", header),
        "read-only relocations": "GNU_RELRO" in segments,
        "stack not executable": re.search(r"GNU_STACK .* RW +0x", segments),
        "bound at the start": re.search(r"\(FLAGS_1\) .*\bNOW\b", dynamic),
        "stack protector": "__stack_chk_fail" in undefined,
        "checked buffers": re.search(r"\b__\w+_chk\b", undefined),
    }
    return {name for name, there in found.items() if there}
