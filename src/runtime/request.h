// The state of one request, which lives as long as that. Functions whose signature is fixed and
// does not hand it over get at it by request_current(): levels, held locks, facts that are tested
// once, the login challenge and the cookie buffer. That pointer is the program's only mutable
// global.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>

#include "platform/mapped_file.h"
#include "platform/ownership.h"

#include "runtime/cgi.h"
#include "runtime/log.h"
#include "runtime/request_streams.h"
#include "runtime/session_record.h"
#include "runtime/strbuf.h"

inline constexpr int lock_kind_count = 5;
inline constexpr int cookie_buffer_size = 4096;

// What a password check leaves behind when a second step is asked for.
struct auth_challenge {
    int statelen = 0;
    char state[256] = {};
    char reply_message[256] = {};
};

// A fact that is tested once per request and remembered.
enum class remembered : std::uint8_t { unknown, no, yes };

// The table of custom reports as it was made last; empty: not yet. Nothing guards it, because one
// thread serves a request.
struct custom_reports_cache {
    scoped_strbuf text;
    std::time_t file_modified = -1;  // of the file that it was made of; -1: there was none
};

// An upload from its turn on, until a handler was given it or it was refused (runtime/spool.h).
struct received_upload {
    unique_fd turn;          // the lock that uploads take turns by; none: nothing of it is left
    bool has_image = false;  // it came with a file, which is whole
};

struct request_record {
    request_streams streams = process_streams();
    cgi input{};
    wms_strbuf response{};
    session_record session{};
    log_levels levels;
    auth_challenge challenge;
    custom_reports_cache custom_reports;
    std::array<int, lock_kind_count> lock_fds{-1, -1, -1, -1, -1};  // by lock kind; -1: not held
    char cookie_buffer[cookie_buffer_size];  // the last cookie asked for; few requests have one
    remembered mon_debug = remembered::unknown;
    remembered timing = remembered::unknown;
    remembered factory_default = remembered::unknown;
    int timing_semaphore = -1;
    mapped_file ap_models;  // tables of names, from their first use on
    mapped_file vendors;
    const char* caller_role = "";  // what the controller lets this process be
    bool wuic_is_cgi_exec =
        false;  // set by this program's own entry; turns the slow-request log off
    // A text buffer could not grow: whatever was built since may lack a piece, so the answer is
    // that memory ran out.
    bool text_lost = false;
    received_upload upload;
    bool answered = false;     // writing the response has begun
    bool client_left = false;  // nobody takes the answer; kept by runtime/wait.h, which tells

    request_record();
    // Releases input and response; drops an upload; closes held locks, whose files stay.
    ~request_record();
    request_record(const request_record&) = delete;
    request_record& operator=(const request_record&) = delete;
};

// The record of the request that is being served; null outside of one.
request_record* request_current_or_null();
// The same, for those who are called between entry and exit only.
// REQUIRES: one exists. Tests make one where they call what needs it.
request_record& request_current();
// Whether the controller is in its factory-default state, as this request first found it.
// REQUIRES: a record exists.
bool request_is_factory_default();
// The streams of the current request; outside of one those of the process.
request_streams request_current_streams();
