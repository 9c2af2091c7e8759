/* The virtual clock behind time() and usleep() in the programs that link the simulator. */
#ifndef ALERTZEL_TEST_VIRTUALTIME_H
#define ALERTZEL_TEST_VIRTUALTIME_H

#ifdef __cplusplus
extern "C" {
#endif

long long harness_now_us(void);
void harness_advance_us(long long us);

#ifdef __cplusplus
}
#endif

#endif
