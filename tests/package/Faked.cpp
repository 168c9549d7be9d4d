// An application's test that uses the installed fakes.
#include <qxawsuploader/testing/FakeClock.h>

int main() {
  qx::FakeClock clock(1000);
  clock.advance(5);
  return clock.now() == 1005 ? 0 : 1;
}
