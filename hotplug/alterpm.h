// alterpm.conf: the PCI devices (VENDOR:DEVICE:REVISION, revision "*" for
// any) that get the alternative power-management treatment. Read once per
// run at the start of the registration; each entry is parsed once and its
// values kept on its token.
#pragma once

#include <cstdint>
#include <functional>

#include "table/token_list.h"

constexpr const char *ALTERPM_CONF = "/etc/opt/KVTPslotag/alterpm.conf";

// The first word of every line of alterpm.conf, in file order.
extern TokenList alterpm_list;

// Reads alterpm.conf into alterpm_list and checks every entry. 0, or -1
// (reported). An entry that does not parse stops the check, unless go_on
// is given and returns true: the entry then stays unparsed and the check
// goes on with the next.
int parse_d0_conf(const std::function<bool(const LineToken &)> &go_on = nullptr);

// The values of one entry, parsed on the first call and cached on the token
// (TOKEN_PARSED). Every out pointer may be null. 0, or -1 (reported).
int parse_d0_entry(LineToken &entry, uint16_t *vendor_id, uint16_t *device_id,
                   uint8_t *revision_id, uint8_t *any_revision);
