#pragma once

#include "protocol/reply.h"
#include "protocol/request.h"

/// Questions about processes, answered by outside programs. Each runs on the thread of its request
/// and waits there for its program; temporary files are gone when it returns. Any thread.

/// Number of processes of a name, as the configured script counts them.
/// Parameters: 2 the name. Deliberate: the name becomes part of a shell command as it is, so that
/// it may carry arguments for the script.
/// Reply: one integer.
void ProcessTest_Process(const VxRequest& params, QovReply& reply);

/// CPU usage, as the configured script tells it; the script has eight seconds.
/// Reply: one real number.
void ProcessTest_CPU(const VxRequest& params, QovReply& reply);

/// Runs a program. Parameters: 1 the command line, 4 the time-out in milliseconds.
/// Reply: its exit code.
void ProcessTest_External(const VxRequest& params, QovReply& reply);

/// The output of the configured process-list script. Reply: one text, a line a process.
void ProcessInfo_ProcessesList(const VxRequest& params, QovReply& reply);

/// Runs a script that the request brings along.
/// Parameters: 1 the command line, in which "%script%" and "%params%" are replaced; 2 the script;
/// 3 its parameters; 4 the time-out in seconds, 0 for none; 5 how many output lines to return.
/// Reply: the result line (the first that begins with "scriptres:", else the last), and the first
/// output lines. Lines are trimmed and empty ones skipped.
void ProcessTest_ShellScript(const VxRequest& params, QovReply& reply);
