// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommand.h>
#include <brixlib/protocol/scommandid.h>

namespace Talverine {

//! One row of a table that leads from a command's id to a session's handler of its reply phase.
template<class Session>
struct CommandHandler
{
    SCommandId id;
    bool (*run)(Session &session, SCommand &command);
};

template<auto handler>
struct HandlerAdapter;

template<class Session, class Command, bool (Session::*handler)(Command &)>
struct HandlerAdapter<handler>
{
    // Ids are not bound to classes by the compiler: a stranger with a known id is a failure.
    static bool run(Session &session, SCommand &command)
    {
        auto *const known = dynamic_cast<Command *>(&command);
        return known && (session.*handler)(*known);
    }
};

//! Fits a member such as `bool Session::executeCommandPwd(SCommandPwd &)` into a row.
template<auto handler>
inline constexpr auto runs = &HandlerAdapter<handler>::run;

} // namespace Talverine
