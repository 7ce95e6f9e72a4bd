// What the hot-plug code said during a call: its standard error, and the
// records it wrote to a temporary operation log, as "ERR: text".
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <cstring>
#include <sstream>
#include <string>
#include <unistd.h>

#include "cli/core/user_log.h"

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
        std::stringstream file;
        file << std::ifstream(log_path_).rdbuf();
        const std::string all = file.str();
        // Each record: "Mmm dd hh:mm:ss HOST slotag[PID]: LEVEL: <S.U>TEXT";
        // a TEXT without "\n" runs straight into the next record.
        char host[256] = {};
        gethostname(host, sizeof host - 1);
        const size_t stamp = 16 + strlen(host);
        std::string out;
        for (size_t at = all.find(" slotag["); at != std::string::npos;) {
            size_t level = all.find("]: ", at) + 3;
            size_t text = all.find('>', level) + 1;
            size_t next = all.find(" slotag[", text);
            size_t end = next == std::string::npos ? all.size() : next - stamp;
            out += all.substr(level, all.find(':', level) - level) + ": " + all.substr(text, end - text);
            at = next;
        }
        return out;
    }

private:
    std::string dir_, log_path_;
    int saved_ = -1;
    FILE *tmp_ = nullptr;
};
