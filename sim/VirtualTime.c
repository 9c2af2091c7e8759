/* time() and usleep() of the programs that link the simulator run on its
 * virtual clock. Defined in C so that the definitions match the C library's
 * declarations; the service's calls resolve to these because the executable
 * defines them. */
#include <time.h>
#include <unistd.h>

#include "VirtualTime.h"

time_t time(time_t* out) {
    time_t now = (time_t)(harness_now_us() / 1000000);
    if (out) *out = now;
    return now;
}

int usleep(useconds_t us) {
    harness_advance_us((long long)us);
    return 0;
}
