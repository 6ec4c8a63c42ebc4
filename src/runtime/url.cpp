#include "runtime/url.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string_view>

namespace {

constexpr std::string_view ex_characters = "~!?@#$%&*()-_+=[]{};:',./";

// Which bytes are copied as they stand.
constexpr std::array<bool, 256> copied_bytes(std::string_view more) {
    std::array<bool, 256> copied{};
    for (unsigned c = 'A'; c <= 'Z'; ++c)
        copied[c] = copied[c - 'A' + 'a'] = true;
    for (unsigned c = '0'; c <= '9'; ++c)
        copied[c] = true;
    for (const char c : more)
        copied[static_cast<unsigned char>(c)] = true;
    return copied;
}

constexpr auto plain_copied = copied_bytes("");
constexpr auto ex_copied = copied_bytes(ex_characters);

// Stores what fits and counts everything.
struct counting_output {
    char* out;
    std::size_t size;
    std::size_t length = 0;

    void put(char c) {
        if (length < size) out[length] = c;
        ++length;
    }
    // The bytes may be those that stand there already.
    void put_all(std::string_view bytes) {
        const std::size_t stored = std::min(bytes.size(), size - std::min(length, size));
        if (stored > 0 && out + length != bytes.data()) {
            std::memmove(out + length, bytes.data(), stored);
        }
        length += bytes.size();
    }
    bool has_room() const { return length < size; }
    // -1 where the true length does not fit into the result.
    int result() const {
        if (length > std::numeric_limits<std::int32_t>::max()) return -1;
        const int whole = static_cast<int>(length);
        return length <= size ? whole : -whole;
    }
};

void escape_into(counting_output* to, std::string_view in, bool crlf,
                 const std::array<bool, 256>& copied) {
    constexpr char digits[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < in.size(); ++i) {
        const bool pair = crlf && in[i] == '\r' && i + 1 < in.size() && in[i + 1] == '\n';
        if (pair) ++i;
        const auto byte = static_cast<unsigned char>(in[i]);
        if (copied[byte]) {
            to->put(in[i]);
            continue;
        }
        to->put('%');
        to->put(digits[byte >> 4]);
        to->put(digits[byte & 15]);
    }
}

// The worth of a digit; what is none counts by its distance from "0", as callers have always got.
int digit_value(char c) {
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return static_cast<unsigned char>(c) - '0';
}

char byte_at(std::string_view in, std::size_t i) {
    return i < in.size() ? in[i] : '\0';
}

// Where the first byte stands that is not copied as it is; the end without one. Two searches cost
// more than a look at each byte of a name that is as short as most are.
std::size_t plain_length(std::string_view in, bool plus) {
    constexpr std::size_t short_max = 16;
    if (in.size() <= short_max) {
        std::size_t at = 0;
        while (at < in.size() && in[at] != '%' && !(plus && in[at] == '+'))
            ++at;
        return at;
    }
    const std::size_t percent = std::min(in.find('%'), in.size());
    return plus ? std::min(in.substr(0, percent).find('+'), percent) : percent;
}

int unescape(char* out, std::int32_t out_size, const char* in, std::int32_t in_len, bool plus) {
    if (out_size < 0 || in_len < 0) return -1;
    const std::string_view from{in, static_cast<std::size_t>(in_len)};
    counting_output to{out, static_cast<std::size_t>(out_size)};
    to.put_all(from.substr(0, plain_length(from, plus)));
    for (std::size_t i = to.length; i < from.size(); ++i) {
        char c = from[i];
        if (c == '%') {
            c = static_cast<char>(digit_value(byte_at(from, i + 1)) * 16 +
                                  digit_value(byte_at(from, i + 2)));
            i += 2;
        } else if (plus && c == '+') {
            c = ' ';
        }
        to.put(c);
    }
    if (to.has_room()) out[to.length] = '\0';
    return to.result();
}

// True when even three bytes for each would fit into the result; else a measuring pass decides,
// so that a failure leaves the output untouched.
bool result_fits(std::string_view in, bool crlf, const std::array<bool, 256>& copied) {
    if (in.size() <= std::numeric_limits<std::int32_t>::max() / 3) return true;
    counting_output measure{nullptr, 0};
    escape_into(&measure, in, crlf, copied);
    return measure.length <= std::numeric_limits<std::int32_t>::max();
}

}  // namespace

int cgi_escape_url(char* out, std::int32_t out_size, const char* in, std::int32_t in_len,
                   bool crlf) {
    if (out_size < 0 || in_len < 0) return -1;
    const std::string_view from{in, static_cast<std::size_t>(in_len)};
    if (!result_fits(from, crlf, plain_copied)) return -1;
    counting_output to{out, static_cast<std::size_t>(out_size)};
    escape_into(&to, from, crlf, plain_copied);
    if (to.has_room()) out[to.length] = '\0';
    return to.result();
}

int cgi_escape_url_ex(char* out, std::int32_t out_size, const char* in, std::int32_t in_len,
                      bool crlf) {
    if (out_size < 0 || in_len < 0) return -1;
    const std::string_view from{in, static_cast<std::size_t>(in_len)};
    if (!result_fits(from, crlf, ex_copied)) return -1;
    counting_output to{out, static_cast<std::size_t>(out_size)};
    escape_into(&to, from, crlf, ex_copied);
    if (to.has_room()) {
        out[to.length] = '\0';
    } else if (to.size > 0 && to.length > to.size) {
        out[to.size - 1] = '\0';
    }
    return to.result();
}

int cgi_unescape_url(char* out, std::int32_t out_size, const char* in, std::int32_t in_len) {
    return unescape(out, out_size, in, in_len, true);
}

int cgi_unescape_url2(char* out, std::int32_t out_size, const char* in, std::int32_t in_len) {
    return unescape(out, out_size, in, in_len, false);
}
