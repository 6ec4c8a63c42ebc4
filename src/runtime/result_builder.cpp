#include "runtime/result_builder.h"

#include <cstring>

#include "runtime/text.h"

int obs_start_result(fsb* buf) {
    fsb_clear(buf);
    return fsb_fmt(buf, "<re>");
}

int obs_end_result(fsb* buf) {
    return fsb_fmt(buf, "</re>");
}

int obs_start_table(fsb* buf, const char* name) {
    return fsb_fmt(buf, "<t name='%s'>", text_or_null(name));
}

int obs_end_table(fsb* buf) {
    return fsb_fmt(buf, "</t>");
}

int obs_add_data(fsb* buf, const char* name, const char* value) {
    return fsb_fmt(buf, "<data name='%s'>%s</data>", text_or_null(name), text_or_null(value));
}

char* obs_strdup(const char* text) {
    return text != nullptr ? ::strdup(text) : nullptr;
}
