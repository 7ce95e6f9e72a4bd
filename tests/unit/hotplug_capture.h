// What the hot-plug code said during a call: its standard error, and the
// records it wrote to a temporary operation log ("ERR: text" per line).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/user_log.h"

class Said {
public:
    Said()
    {
        char tmpl[] = "/tmp/slotag-hotplug-XXXXXX";
        if (!mkdtemp(tmpl))
            ADD_FAILURE() << "mkdtemp";
        dir_ = tmpl;
        log_path_ = dir_ + "/user.log";  // the log keeps this pointer
        uint32_t code = 0;
        g_user_log = user_log_open("slotag", log_path_.c_str(), 1 << 20, 4, &code);
        fflush(stderr);
        saved_stderr_ = dup(2);
        tmp_ = tmpfile();
        dup2(fileno(tmp_), 2);
    }
    ~Said()
    {
        restore();
        fclose(tmp_);
        user_log_close(g_user_log);
        g_user_log = nullptr;
        if (system(("rm -rf " + dir_).c_str()) != 0)
            ADD_FAILURE() << "rm " << dir_;
    }
    Said(const Said &) = delete;
    Said &operator=(const Said &) = delete;

    std::string stderr_text()
    {
        restore();
        std::string out;
        rewind(tmp_);
        char buf[512];
        while (fgets(buf, sizeof buf, tmp_))
            out += buf;
        return out;
    }

    std::string log_text() const
    {
        std::ifstream in(log_path_);
        std::stringstream all;
        all << in.rdbuf();
        // Not anchored: a message without "\n" runs into the next record.
        static const std::regex prefix(
            R"([A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} \S+ slotag\[[0-9]+\]: ([A-Z]+): <[0-9a-f]+\.[0-9a-f]+>)");
        return std::regex_replace(all.str(), prefix, "$1: ");
    }

private:
    void restore()
    {
        if (saved_stderr_ >= 0) {
            fflush(stderr);
            dup2(saved_stderr_, 2);
            close(saved_stderr_);
            saved_stderr_ = -1;
        }
    }

    std::string dir_, log_path_;
    int saved_stderr_ = -1;
    FILE *tmp_ = nullptr;
};
