"""What the tests of the package share."""
import subprocess


def run(*command, **options):
    """The output of a command that must succeed."""
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}\n{done.stdout}")
    return done.stdout
