#include "near_miss.h"

#include <cstdio>

#include "escape.h"
#include "verify.h"

namespace vosk {

namespace {

std::string hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", value);
  return text;
}

bool inode_known(byte_span bytes, std::size_t at, const inode_fields &inodes) {
  return std::find(inodes.begin(), inodes.end(), inode_characters(bytes, at)) != inodes.end();
}

std::string joined(const inode_fields &inodes) {
  std::string text;
  for (const std::string &field : inodes) text += (text.empty() ? "" : " or ") + field;
  return text;
}

void check_zero_word(byte_span bytes, std::size_t at, const char *name, std::vector<damage> &found) {
  if (const std::uint32_t word = load_u32(bytes, at); word != 0) found.push_back({at, name, hex(word), "0"});
}

// What is wrong with the head, if a record with an identifier started here.
std::vector<damage> head_faults(byte_span bytes, std::size_t at, const inode_fields &inodes) {
  std::vector<damage> found;
  const std::size_t eid = at + layout::kIdentifierAt;
  check_zero_word(bytes, at + layout::kPrefixZeroAt, "zero word of the prefix", found);
  check_zero_word(bytes, at + layout::kBodyZeroAt, "zero word of the body", found);
  if (bytes[eid] != kStackHeaderCharacter)
    found.push_back({eid, "first character of the identifier", escaped(characters(bytes, eid, 1)), "7"});
  if (!inode_known(bytes, at, inodes))
    found.push_back({eid + 1, "i-node field of the identifier", escaped(inode_characters(bytes, at)), joined(inodes)});
  if (!seconds_agree(bytes, at)) {
    const auto seconds = field_value(characters(bytes, eid + 7, 6));
    found.push_back({at + layout::kTimeAt, "time", std::to_string(load_u32(bytes, at + layout::kTimeAt)),
                     seconds ? std::to_string(static_cast<std::uint32_t>(*seconds))
                             : "the identifier's seconds, which are not valid either"});
  }
  if (!terminated(bytes, at))
    found.push_back(
        {eid + kIdentifierLength, "terminator of the identifier", hex(bytes[eid + kIdentifierLength]), "0x0"});
  return found;
}

// The same, if a record without an identifier started here.
std::vector<damage> unidentified_head_faults(byte_span bytes, std::size_t at) {
  std::vector<damage> found;
  check_zero_word(bytes, at + layout::kPrefixZeroAt, "zero word of the prefix", found);
  check_zero_word(bytes, at + layout::kBodyZeroAt, "zero word of the body", found);
  const std::size_t eid = at + layout::kIdentifierAt;
  for (std::size_t i = eid; i < eid + layout::kIdentifierSize; ++i)
    if (bytes[i] != 0) found.push_back({i, "identifier, which is empty otherwise", hex(bytes[i]), "0x0"});
  if (const std::uint32_t time = load_u32(bytes, at + layout::kTimeAt); time != 0)
    found.push_back({at + layout::kTimeAt, "time of a record without an identifier", std::to_string(time), "0"});
  return found;
}

bool whole_at(byte_span bytes, std::size_t at) {
  if (!plausible_length(load_u32(bytes, at))) return false;
  record ignored;
  return whole_record(bytes, at, ignored);
}

}  // namespace

void find_near_miss(byte_span bytes, std::size_t at, bool follows_a_record, const inode_fields &inodes,
                    std::vector<damage> &damages) {
  if (!whole_at(bytes, at)) {
    // After a wrap a record's end lies somewhere in an older one, which is no damage; but then that record hides its
    // own predecessor's end, too.
    if (!follows_a_record || !inode_known(bytes, at, inodes) || !seconds_agree(bytes, at)) return;
    const std::vector<damage> found = head_faults(bytes, at, inodes);
    damages.insert(damages.end(), found.begin(), found.end());
    return;
  }
  std::vector<damage> found = head_faults(bytes, at, inodes);
  if (found.size() > 1) found = unidentified_head_faults(bytes, at);
  if (found.size() == 1) damages.push_back(std::move(found[0]));
}

}  // namespace vosk
