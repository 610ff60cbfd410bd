#ifndef TAVIDL_TESTS_WIRE_MESSAGES_H
#define TAVIDL_TESTS_WIRE_MESSAGES_H

#include <map>
#include <string>

// Messages kept as text: a line "<name>, <encoding>:", a blank line, and the message
// in lines indented by four spaces. Binary and compact ones are hexadecimal, and what
// follows two spaces is a comment; JSON ones are as sent, wherever lines break.
// Other text between messages is passed over.
std::map<std::string, std::string> readMessages(const std::string& path);

// The other way round, as one line.
std::string asText(const std::string& encoding, const std::string& message);

#endif
