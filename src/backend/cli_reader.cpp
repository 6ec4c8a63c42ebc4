#include "backend/cli_reader.h"

#include <cstring>
#include <utility>

#include "runtime/strbuf.h"

#include "backend/command.h"
#include "backend/markup.h"

namespace {

using std::string_view;

void append_token(wms_strbuf* buf, const sgml_tokenizer* tokenizer, text_form form) {
    const sgml_token& token = tokenizer->token;
    const string_view text(tokenizer->text + token.start, static_cast<std::size_t>(token.size));
    if (form == text_form::markup && cdata_is_current(tokenizer)) {
        markup_append(buf, text);
    } else {
        wms_strbuf_append_all(buf, {text});
    }
}

}  // namespace

int cli_reader_execute(cli_reader* reader, const session_record* session, const char* command,
                       const char* argument) {
    sgml_tokenizer_init(&reader->tokenizer, nullptr, 0);
    scoped_strbuf line;
    const bool has_argument = argument != nullptr;
    wms_strbuf_fmt(line, "%s%s%s", command, has_argument ? " " : "", has_argument ? argument : "");
    if (line.buf.data == nullptr) return -1;
    line.buf.data[std::strcspn(line.buf.data, "\r\n")] = '\0';
    command_outcome outcome = command_run(session, line.buf.data);
    reader->reply = std::move(outcome.reply);
    if (outcome.failed) return -1;
    return sgml_tokenizer_init(&reader->tokenizer, reader->reply.get(), outcome.reply_len);
}

bool cli_reader_is_open(const sgml_tokenizer* tokenizer, const char* name) {
    return sgml_tokenizer_is_tag(&tokenizer->token, name, false);
}

bool cli_reader_is_close(const sgml_tokenizer* tokenizer, const char* name) {
    return sgml_tokenizer_is_tag(&tokenizer->token, name, true);
}

string_view cli_reader_text(sgml_tokenizer* tokenizer, wms_strbuf* buf, text_form form) {
    wms_strbuf_clear(buf);
    if (tokenizer->token.self_closing != 0) return {};
    int kind = sgml_tokenizer_next(tokenizer);
    const std::int32_t depth = tokenizer->depth;
    for (; kind > 0; kind = sgml_tokenizer_next(tokenizer)) {
        if (kind == sgml_text) append_token(buf, tokenizer, form);
        if (tokenizer->token.closing != 0 && tokenizer->depth == depth) break;
    }
    return buf->data != nullptr ? buf->data : "";
}
