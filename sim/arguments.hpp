#pragma once
// Reading the words of a topology statement, shared by the files that
// parse statements.

#include "numbers.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

// A malformed statement; the parser adds the file name and line.
class ParseError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The words after a statement's fixed operands: key=value pairs and bare
// flags, each of which must be used by the statement.
class Arguments {
public:
    explicit Arguments(const std::vector<std::string>& words, std::size_t first)
    {
        for (std::size_t i = first; i < words.size(); ++i) {
            auto eq = words[i].find('=');
            if (eq == std::string::npos)
                flags_.insert(words[i]);
            else
                values_[words[i].substr(0, eq)] = words[i].substr(eq + 1);
        }
    }

    bool flag(const std::string& name) { return flags_.erase(name) > 0; }

    std::optional<std::string> text(const std::string& key)
    {
        auto it = values_.find(key);
        if (it == values_.end())
            return std::nullopt;
        std::string value = it->second;
        values_.erase(it);
        return value;
    }

    std::optional<std::uint64_t> number(const std::string& key, std::uint64_t max)
    {
        auto value = text(key);
        if (!value)
            return std::nullopt;
        auto n = parse_number(*value, max);
        if (!n)
            throw ParseError("bad value for " + key + ": " + *value);
        return n;
    }

    template <typename T>
    void number_into(const std::string& key, T& target)
    {
        if (auto n = number(key, static_cast<std::uint64_t>(static_cast<T>(~T{0}))))
            target = static_cast<T>(*n);
    }

    template <typename T>
    void number_into(const std::string& key, std::optional<T>& target)
    {
        if (auto n = number(key, static_cast<std::uint64_t>(static_cast<T>(~T{0}))))
            target = static_cast<T>(*n);
    }

    // Keys of the form PREFIX<number>=VALUE, e.g. reg5=0x10.
    std::map<std::uint64_t, std::string> indexed(const std::string& prefix)
    {
        std::map<std::uint64_t, std::string> out;
        for (auto it = values_.begin(); it != values_.end();) {
            if (it->first.size() > prefix.size() && it->first.starts_with(prefix)) {
                if (auto index = parse_number(std::string_view(it->first).substr(prefix.size()), 0xff)) {
                    out[*index] = it->second;
                    it = values_.erase(it);
                    continue;
                }
            }
            ++it;
        }
        return out;
    }

    void finish() const
    {
        if (!flags_.empty())
            throw ParseError("unknown word: " + *flags_.begin());
        if (!values_.empty())
            throw ParseError("unknown setting: " + values_.begin()->first);
    }

private:
    std::set<std::string> flags_;
    std::map<std::string, std::string> values_;
};
