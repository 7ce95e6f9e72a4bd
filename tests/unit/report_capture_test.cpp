// A report capture takes every failure message instead of standard error
// and the log (one line for the two twins of a report), remembers the first
// site number named, drops progress lines, and gives the outputs back when
// it ends, also when captures nest.
#include <gtest/gtest.h>

#include "cli/core/report.h"
#include "hotplug_capture.h"

TEST(ReportCapture, TakesFailureMessagesAndTheFirstSite)
{
    Said said;
    CapturedMessages outer, inner;
    {
        ReportCapture capture(outer);
        log_info("progress.\n");
        report_error("plain %d.\n", 1);
        report_fatal(0xccb);
        {
            ReportCapture nested(inner);
            report_io_error("/dev/slotag", 2, 0xe57);
        }
        log_err("device %s is does not exist.\n", "0000:05:00.0");
        report_site_error(0x321, "failed to get a busID(%x).\n", 0x321u);
        print_error("stderr only\n");
    }
    report_fatal(0xce2);  // after the capture: out as usual
    EXPECT_EQ(outer.lines, (std::vector<std::string>{"plain 1.", "there was a fatal error(ccb).",
                                                     "device 0000:05:00.0 is does not exist.",
                                                     "failed to get a busID(321).",
                                                     "stderr only"}));
    EXPECT_EQ(outer.first_site, 0xccbu);
    EXPECT_EQ(inner.lines,
              (std::vector<std::string>{"/dev/slotag: an input/output error has occurred(2:e57)."}));
    EXPECT_EQ(inner.first_site, 0xe57u);
    EXPECT_EQ(said.stderr_text(), "ERROR: there was a fatal error(ce2).\n");
    EXPECT_EQ(said.log_text(), "ERR: there was a fatal error(ce2).\n");
}
