#include "backend/markup.h"

#include "runtime/escape_table.h"
#include "runtime/strbuf.h"

#include "backend/sgml_tokenizer.h"

namespace {

constexpr std::string_view opener = "<![CDATA[";
constexpr std::string_view closer = "]]>";
constexpr std::string_view split_closer = "]]]]><![CDATA[>";

constexpr escape_table references = [] {
    escape_table table;
    table.set('&', "&amp;");
    table.set('<', "&lt;");
    table.set('>', "&gt;");
    table.set('"', "&quot;");
    return table;
}();

}  // namespace

void markup_append(wms_strbuf* out, std::string_view text) {
    escape_to_strbuf(out, text, references);
}

void cdata_append(wms_strbuf* out, std::string_view text) {
    for (std::size_t at = text.find(closer); at != text.npos; at = text.find(closer)) {
        wms_strbuf_append_all(out, {text.substr(0, at), split_closer});
        text.remove_prefix(at + closer.size());
    }
    wms_strbuf_append_all(out, {text});
}

// Any other text begins behind a ">" or at the very start.
bool cdata_is_current(const sgml_tokenizer* tokenizer) {
    if (!sgml_tokenizer_is_text(&tokenizer->token)) return false;
    const auto start = static_cast<std::size_t>(tokenizer->token.start);
    return std::string_view(tokenizer->text, start).ends_with(opener);
}
