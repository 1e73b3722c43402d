#pragma once

#include <functional>
#include <ostream>
#include <string>

/// The one road of debug text to the host's front end.

/// Sends a text in pieces of 4096 characters, the last piece holding the rest; an empty rest sends nothing.
void SendDebugPieces(const std::string& text);

/// What an engine display writes, caught by swapping the engine's process-wide stream for the length of the call.
std::string CatchEngineText(const std::function<void()>& display);

/// Dumps what an engine display writes: an empty line, then the text in pieces.
void DumpEngineText(const std::function<void()>& display);

/// The same for a display that takes its stream as an argument.
void DumpStreamText(const std::function<void(std::ostream&)>& display);
