#include <net/miscIPUtils.h>
#include <time/VORNClock.h>

int main() {
  VORNClock clock;
  KELNtpTime now;
  clock.TimeGet(&now);
  return clock.IsValid() != 0 && now.sec > 0 && VornStringToAddress("10.1.2.3") == 0x0A010203 ? 0
                                                                                              : 1;
}
