// The options every subsystem reads.
#include "cli/core/options.h"

#include <climits>

CommandOptions g_options;

int32_t option_timeout_ms()
{
    // A product that does not fit 32 bits is held at the nearest limit
    // instead of wrapping: a huge -t must not turn into a short or negative
    // time-out. 0 keeps meaning "no time-out", a negative value "no limit".
    long long ms = static_cast<long long>(g_options.timeout_sec) * 1000;
    if (ms > INT32_MAX)
        return INT32_MAX;
    if (ms < INT32_MIN)
        return INT32_MIN;
    return static_cast<int32_t>(ms);
}
