// Renders the files a sandboxed command changed as one git-like unified diff.
#pragma once

#include "sandbox.h"

#include <string>
#include <vector>

namespace ZqlSandbox {

// Writes a unified diff of files to fd, one block per entry in the given order, so that
// "patch -p1" run from "/" and diff viewers understand it. Each block starts with
// "diff --git a/P b/P" (P: the path without its leading slash), followed by git's header
// lines for what changed besides the content ("new file mode 100644", "old mode"/"new mode",
// "deleted file mode") and a few of its own ("old owner"/"new owner" with numeric uid:gid,
// "old symlink"/"new symlink" with the link target, "new directory mode", "deleted directory
// mode", "old type"/"new type" when the kind of file changed), then the hunks of GNU
// "diff -u" for regular files, or its "Binary files ... differ" line.
//
// The header lines are written with write(2), and diff (looked up in PATH, run with fork and
// exec, LC_ALL=C, no shell) writes its hunks straight to fd. Reads the files in files while
// it runs (an Inspector can call it). A reader that went away (EPIPE) is a write failure:
// SIGPIPE is held back for the calling thread meanwhile.
//
// Returns false and sets *error (if error is not null) when a file cannot be read, diff cannot
// be run, diff fails (status 2 or a signal) or a write fails; what was written stays written.
bool writeUnifiedDiff(const std::vector<ChangedFile> &files, int fd, std::string *error);

} // namespace ZqlSandbox
