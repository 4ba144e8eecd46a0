// Tells a shell what the command line that is being typed can go on with.
#pragma once

namespace command {

// The name of this command, which people do not type.
inline constexpr const char *kCompleteCommand = "complete";

// The arguments are SHELL HEAD WORD...: the words of the line as they are typed, with the root's, the last up to the
// cursor; HEAD is that part of the last which the shell keeps. Writes a line with "words", "files" or "directories",
// then words, a line each, with what they are about behind a tab. Writes nothing else and within a second, or as many
// as VESK_COMPLETION_SECONDS says, or nothing at all.
int complete(int argc, char **argv);

}  // namespace command
