"""What the tests of the package share."""
import subprocess

# What the hosts here print of an upload for which nobody is signed in.
ERROR_WITHOUT_IDENTITY = "[Error] miss userId or accessToken 102\n"
# A host whose callback is not called runs for ever.
HOST_SECONDS = 60


def run(*command, **options):
    """The output of a command that must succeed."""
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}\n{done.stdout}")
    return done.stdout
