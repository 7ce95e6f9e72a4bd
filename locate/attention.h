// The attention indicator of a kernel hot-plug slot, set and read through
// /sys/bus/pci/slots/NAME/attention: the hot-plug driver then runs its own
// command sequence, which a configuration-space write would bypass.
#pragma once

#include <string>

struct AttentionResult {
    enum Kind { SET, NO_INDICATOR, REFUSED } kind = REFUSED;
    std::string state;   // SET: what the kernel reads back ("on", "off", "blinking", ...)
    std::string reason;  // otherwise: why, in plain words (NO_INDICATOR: empty when
                         // the slot has no attention file)
};

// Sets the indicator of the kernel slot `name` on or off and reads it back.
// No symbolic link is followed on the way, and only a regular file is
// written.
AttentionResult set_attention(const std::string &name, bool on);
