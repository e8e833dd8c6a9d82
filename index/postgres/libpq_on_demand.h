// The PostgreSQL client library is loaded when a shared index is first asked for, not when the
// program starts: most searches never reach a server, and libpq brings some twenty libraries
// (Kerberos, LDAP, TLS) whose loading would cost every start of the console program.
//
// libpq_on_demand.cpp defines the libpq functions this room calls; each finds the real one in
// libpq.so.5 on first use. Without the library they answer as libpq does for a connection that
// failed, so callers ask LibpqLoaded() first to say why.
#pragma once

#include <string>

namespace trovix::engine::index {

// Whether libpq.so.5 could be loaded; *why (when given) says what was missing.
bool LibpqLoaded(std::string* why = nullptr);

}  // namespace trovix::engine::index
