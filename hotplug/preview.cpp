// The registration preview: the register step's reading and build with every
// problem gathered; the driver is never opened.
#include "hotplug/preview.h"

#include <algorithm>
#include <utility>

#include "hotplug/alterpm.h"
#include "hotplug/hba_info.h"

void add_preview_problem(RegistrationPreview &p, PreviewStage stage, const LineToken *token)
{
    p.problems.push_back({stage, p.messages.first_site, token, std::move(p.messages.lines)});
    p.messages = CapturedMessages{};
}

int preview_registration(RegistrationPreview &p)
{
    ReportCapture capture(p.messages);
    if (read_d0_conf() == -1) {
        add_preview_problem(p, PreviewStage::ALTERPM, nullptr);
    } else {
        // Every entry, not only up to the first bad one; a bad entry stays
        // unparsed and takes no part in the marks.
        for (LineToken &entry : alterpm_list)
            if (parse_d0_entry(entry, nullptr, nullptr, nullptr, nullptr) == -1)
                add_preview_problem(p, PreviewStage::ALTERPM, &entry);
    }
    int built = build_shpc_hba_info_preview(p);
    if (built == -1)
        add_preview_problem(p, PreviewStage::BUS, nullptr);
    std::stable_sort(p.problems.begin(), p.problems.end(),
                     [](const PreviewProblem &a, const PreviewProblem &b) {
                         return a.stage < b.stage;
                     });
    return built;
}
