// The dispatch table: which handler serves a request key, who may use it, and when the
// anti-forgery token is asked for. All facts of a row stand in its line.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "runtime/handler.h"

enum class token_rule : std::uint32_t { never = 0, always = 1, post_only = 2, get_only = 3 };

struct dispatch_row {
    std::string_view name;               // a whole request path, or a bare last path element
    std::uint32_t mask;                  // roles that may use it (backend/permission.h)
    request_handler* handler = nullptr;  // null: not implemented, unless the row is wrapped
    std::uint32_t flag = 0;              // 0: the key counts as registered
    token_rule token = token_rule::never;
    bool wrapped = false;                   // generic_wrapper puts an answer around its target's
    wrapper_target* target = nullptr;       // of a wrapped row; null: not implemented
    bool before_session = false;            // served without a session, though its mask forbids
    bool in_setup = false;                  // served in the factory-default state, too
    bool from_other_sites = false;          // a page of another site may call it, by GET
    bool spooled = false;                   // an upload page (runtime/spool.h)
    path_refusal* own_path_only = nullptr;  // set where the row takes passwords
};

// All rows, in strictly ascending byte order of their names.
std::span<const dispatch_row> dispatch_rows();

// The row whose name is exactly `key`, or null.
const dispatch_row* dispatch_find_exact(std::string_view key);

// The row that serves `key`: by the whole key; else by what follows its last "/"; but a key that
// contains "/v1/configuration" is served by that row. Null when there is none.
const dispatch_row* dispatch_find(std::string_view key);

// True when `key` is served by a row whose flag is 0.
bool wuic_cgi_is_registered(const char* key);
