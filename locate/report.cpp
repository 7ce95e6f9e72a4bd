// Field names of the JSON are stable (documented in slotag-locate(8)).
#include "locate/report.h"

#include "cli/core/report.h"
#include "lib/json_text.h"

namespace {

// A key and a string, or null when the string is empty.
void string_field(FILE *out, const char *key, const std::string &s)
{
    json_key(out, key);
    json_string_or_null(out, s);
}

void write_json_outcome(FILE *out, const LocateOutcome &o)
{
    fputs("    {", out);
    string_field(out, "operand", o.operand);
    fputs(", ", out);
    string_field(out, "bus_id", o.bus_id);
    fputs(", ", out);
    string_field(out, "controller", o.controller);
    fputs(", ", out);
    string_field(out, "slot_address", o.slot_address);
    fputs(", \"physical_slot\": ", out);
    if (o.physical_slot >= 0)
        fprintf(out, "%ld", o.physical_slot);
    else
        fputs("null", out);
    fputs(", ", out);
    string_field(out, "kernel_slot", o.kernel_slot);
    fputs(", ", out);
    string_field(out, "attention", o.state);
    fprintf(out, ", \"status\": %d, ", o.status);
    string_field(out, "error", o.reason);
    fputc('}', out);
}

} // namespace

bool write_text_outcome(FILE *out, const LocateOutcome &o)
{
    fprintf(out, "%s: adapter %s in ", o.operand.c_str(), o.bus_id.c_str());
    if (o.physical_slot >= 0)
        fprintf(out, "physical slot %ld", o.physical_slot);
    else
        fprintf(out, "the slot at %s", o.slot_address.c_str());
    fprintf(out, " (kernel slot \"%s\", controller %s): attention indicator %s\n",
            o.kernel_slot.c_str(), o.controller.c_str(), o.state.c_str());
    return !ferror(out);
}

bool write_json_outcomes(FILE *out, const std::vector<LocateOutcome> &outcomes, bool on)
{
    fprintf(out, "{\n  \"request\": \"%s\",\n  \"status\": %d,\n  \"results\": [",
            on ? "on" : "off", exit_status(outcomes));
    const char *sep = "\n";
    for (const LocateOutcome &o : outcomes) {
        fputs(sep, out);
        write_json_outcome(out, o);
        sep = ",\n";
    }
    fputs("]\n}\n", out);
    return !ferror(out);
}

void print_failure(const LocateOutcome &o)
{
    if (o.bus_id.empty())
        print_error("%s: names no adapter: %s.\n", o.operand.c_str(), o.reason.c_str());
    else
        print_error("%s: adapter %s: %s.\n", o.operand.c_str(), o.bus_id.c_str(), o.reason.c_str());
}
