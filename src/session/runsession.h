#pragma once
// The sign-in as a run on a thread of its own sees it: the chosen database, its type and the
// destination as they stood when the run began, and a connection of its own to the same
// database. Qt's connections belong to the thread that opened them, so the run cannot use the
// sign-in's (opened on the window's thread, and kept there for browsing the tree); it opens one
// with the same connection text on its own thread and closes it there.
//
// Threads: made and filled (take()) on the window's thread between runs; open(), cnDb() and
// close() on the run's thread only, which alone reads the copied values while the run goes on.
// form() is the window's port, which takes calls from any thread (it marshals them itself).

#include "tree/treesession.h"

#include <memory>

namespace session {

class RunSession : public tree::SessionState {
public:
    explicit RunSession(tree::WindowPort &form);
    ~RunSession() override;
    RunSession(const RunSession &) = delete;
    RunSession &operator=(const RunSession &) = delete;

    // The session's choices and its connection's text, as they stand now.
    void take(tree::SessionState &from);
    // A connection to the same database, opened on the calling thread; raises as the sign-in's did.
    void open();
    void close();

    repo::Connection &cnDb() override;
    tree::WindowPort &form() override { return m_form; }

private:
    tree::WindowPort &m_form;
    QString m_connectionText;
    std::unique_ptr<repo::Connection> m_cn;
};

} // namespace session
