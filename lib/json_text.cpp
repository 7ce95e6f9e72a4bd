#include "lib/json_text.h"

void json_string(FILE *out, std::string_view s)
{
    fputc('"', out);
    for (unsigned char c : s) {
        if (c == '"' || c == '\\')
            fprintf(out, "\\%c", c);
        else if (c < 0x20 || c >= 0x7f)
            fprintf(out, "\\u%04x", c);
        else
            fputc(c, out);
    }
    fputc('"', out);
}

void json_string_or_null(FILE *out, std::string_view s)
{
    if (s.empty())
        fputs("null", out);
    else
        json_string(out, s);
}

void json_key(FILE *out, const char *name) { fprintf(out, "\"%s\": ", name); }
