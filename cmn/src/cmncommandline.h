// How a command line falls into words, and a word loses its quotes.
#ifndef CMNCOMMANDLINE_H
#define CMNCOMMANDLINE_H

namespace kelp_cmn_4_4 {

// The first character that is neither a space nor a tab.
const char* skipBlanks(const char* text);

// The end of the word that starts at `word`, or null for an open quote or a backslash at the end.
const char* endOfWord(const char* word);

// Removes quotes and backslashes; false, without a terminator, when a backslash is the last byte.
bool decodeArgument(const char* text, int length, char* out);

}  // namespace kelp_cmn_4_4

#endif
