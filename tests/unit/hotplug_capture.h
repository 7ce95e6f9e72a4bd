// What the hot-plug code said during a call: its standard error, and the
// records it wrote to a temporary operation log, as "ERR: text".
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>

#include "cli/user_log.h"

class Said {
public:
    Said()
    {
        char tmpl[] = "/tmp/slotag-hotplug-XXXXXX";
        dir_ = mkdtemp(tmpl) ? tmpl : "/tmp";
        log_path_ = dir_ + "/user.log";  // the log keeps this pointer
        g_user_log = user_log_open("slotag", log_path_.c_str(), 1 << 20, 4, nullptr);
        fflush(stderr);
        saved_ = dup(2);
        tmp_ = tmpfile();
        dup2(fileno(tmp_), 2);
    }
    ~Said()
    {
        stderr_text();
        fclose(tmp_);
        user_log_close(g_user_log);
        g_user_log = nullptr;
        unlink(log_path_.c_str());
        rmdir(dir_.c_str());
    }
    Said(const Said &) = delete;
    Said &operator=(const Said &) = delete;

    std::string stderr_text()
    {
        if (saved_ >= 0) {
            fflush(stderr);
            dup2(saved_, 2);
            close(saved_);
            saved_ = -1;
        }
        std::string out;
        rewind(tmp_);
        for (int c; (c = fgetc(tmp_)) != EOF;)
            out += static_cast<char>(c);
        return out;
    }

    std::string log_text() const
    {
        std::stringstream all;
        all << std::ifstream(log_path_).rdbuf();
        // Not anchored: a message without "\n" runs into the next record.
        static const std::regex prefix(R"(\w{3} [ \d]\d [\d:]{8} \S+ slotag\[\d+\]: ([A-Z]+): <[\da-f]+\.[\da-f]+>)");
        return std::regex_replace(all.str(), prefix, "$1: ");
    }

private:
    std::string dir_, log_path_;
    int saved_ = -1;
    FILE *tmp_ = nullptr;
};
