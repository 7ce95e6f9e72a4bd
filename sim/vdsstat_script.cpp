#include "vdsstat_script.hpp"

namespace {

// 'text' for the shell, whatever it holds.
std::string quoted(const std::string& text)
{
    std::string out = "'";
    for (char c : text) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + "'";
}

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const auto& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string case_body(const QueryCase& query)
{
    std::string body;
    for (const auto& step : query.steps) {
        switch (step.kind) {
        case QueryStep::Kind::stdout_line:
            body += "  printf '%s\\n' " + quoted(step.text) + "\n";
            break;
        case QueryStep::Kind::stderr_line:
            body += "  printf '%s\\n' " + quoted(step.text) + " >&2\n";
            break;
        case QueryStep::Kind::sleep:
            // sleep does not hold the output: were the script killed
            // meanwhile, the reader must not wait for it.
            body += "  sleep " + step.text + " </dev/null >/dev/null 2>&1\n";
            break;
        }
    }
    if (query.signal)
        body += "  kill -" + *query.signal + " $$\n";
    body += "  exit " + std::to_string(query.exit_code) + "\n";
    return body;
}

} // namespace

std::string vdsstat_script(const std::vector<QueryCase>& cases, const std::string& calls_log)
{
    std::string script = "#!/bin/sh\n"
                         "# The volume manager's query command, as the topology scripts it.\n"
                         "printf '%s\\n' \"$0 $*\" >>" + quoted(calls_log) + "\n"
                         "case \"$*\" in\n";
    // The arguments are matched as one line; the first case that fits wins.
    for (const auto& query : cases)
        script += quoted(joined(query.args)) + ")\n" + case_body(query) + "  ;;\n";
    script += "esac\n"
              "printf 'vdsstat: no scripted answer for: %s\\n' \"$*\" >&2\n"
              "exit 2\n";
    return script;
}
