#ifndef TAVCTL_WIRENAMES_H
#define TAVCTL_WIRENAMES_H

#include <thrift/protocol/TProtocol.h>

#include <utility>

namespace tavctl {

// What decode calls the types of values and messages, and encode knows them by.
constexpr std::pair<apache::thrift::protocol::TType, const char*> kTypeNames[] = {
    {apache::thrift::protocol::T_BOOL, "bool"},     {apache::thrift::protocol::T_BYTE, "byte"},
    {apache::thrift::protocol::T_I16, "i16"},       {apache::thrift::protocol::T_I32, "i32"},
    {apache::thrift::protocol::T_I64, "i64"},       {apache::thrift::protocol::T_DOUBLE, "double"},
    {apache::thrift::protocol::T_STRING, "string"}, {apache::thrift::protocol::T_MAP, "map"},
    {apache::thrift::protocol::T_STRUCT, "struct"}, {apache::thrift::protocol::T_SET, "set"},
    {apache::thrift::protocol::T_LIST, "list"}};

constexpr const char* kMessageTypeNames[] = {"call", "reply", "exception", "oneway"};  // from 1 on

}  // namespace tavctl

#endif
