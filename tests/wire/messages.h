#ifndef TAVIDL_TESTS_WIRE_MESSAGES_H
#define TAVIDL_TESTS_WIRE_MESSAGES_H

#include <map>
#include <string>

// Messages stored as text: a line "<name>, <encoding>:", a blank line, and the message in
// lines indented by four spaces. Binary and compact messages are hexadecimal, with comments
// after two spaces; JSON messages are as sent, with any line breaks. Other text between
// messages is ignored.
std::map<std::string, std::string> readMessages(const std::string& path);

// The reverse, in one line.
std::string asText(const std::string& encoding, const std::string& message);

#endif
