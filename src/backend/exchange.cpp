#include "backend/exchange.h"

#include <cerrno>
#include <sys/socket.h>

exchange_state::~exchange_state() {
    exchange_close(this);
}

bool exchange_is_shortage(int error) {
    return error == EAGAIN || error == EMFILE || error == ENFILE || error == ENOBUFS ||
           error == ENOMEM;
}

void exchange_close(exchange_state* exchange) {
    const int saved = errno;
    if (exchange->fd) shutdown(exchange->fd.get(), SHUT_WR);
    exchange->fd.reset();
    errno = saved;
}

void exchange_end(exchange_state* exchange, int result) {
    exchange_close(exchange);
    exchange->result = result;
    exchange->ended = true;
}

void exchange_fail(exchange_state* exchange) {
    exchange->error = errno;
    exchange_end(exchange, -1);
}
