#include "table/text_fields.h"

bool next_field(std::string_view s, size_t &pos, char separator, std::string_view &field,
                size_t *end)
{
    while (pos < s.size() && s[pos] == separator)
        pos++;
    if (pos >= s.size())
        return false;
    size_t stop = s.find(separator, pos);
    if (stop == std::string_view::npos)
        stop = s.size();
    field = s.substr(pos, stop - pos);
    pos = stop < s.size() ? stop + 1 : stop;
    if (end)
        *end = stop;
    return true;
}

bool hex_low_bits(std::string_view digits, uint32_t *value)
{
    uint32_t v = 0;
    for (char c : digits) {
        uint32_t d;
        if (c >= '0' && c <= '9')
            d = static_cast<uint32_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            d = static_cast<uint32_t>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            d = static_cast<uint32_t>(c - 'A' + 10);
        else
            return false;
        v = (v << 4) | d;
    }
    *value = v;
    return true;
}
