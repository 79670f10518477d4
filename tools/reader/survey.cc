#include "survey.h"

#include <algorithm>
#include <map>
#include <utility>

#include "near_miss.h"
#include "verify.h"

namespace vosk {

namespace {

// The field as an identifier of the file with this i-node has it.
std::string inode_field(std::uint64_t inode) {
  std::string field;
  for (int i = 0; i < 6; ++i, inode >>= 6) field += kDigitCharacters[inode & 63];
  return field;
}

// Identifiers of a file agree in their i-node. Where it is not the file's own, the file is a copy or was restored, and
// those that agree with each other are right; one that stands alone then is damaged, unless all do.
inode_fields accepted_inodes(byte_span bytes, const std::vector<std::size_t> &heads,
                             std::optional<std::uint64_t> inode) {
  std::map<std::string, int> votes;
  for (const std::size_t at : heads) ++votes[std::string(inode_characters(bytes, at))];
  inode_fields accepted, all;
  const std::string own = inode ? inode_field(*inode) : std::string();
  for (const auto &[field, count] : votes) {
    all.push_back(field);
    if (field == own || count > 1) accepted.push_back(field);
  }
  if (all.empty() && inode) all.push_back(own);
  return accepted.empty() ? all : accepted;
}

// The offsets of all heads with an identifier: everything verified but the i-node and the fields behind the head.
std::vector<std::size_t> identified_heads(byte_span bytes) {
  std::vector<std::size_t> heads;
  for (std::size_t at = layout::kHeaderSize; at + layout::kFieldsAt <= bytes.size(); ++at)
    if (head_is_identified(bytes, at)) heads.push_back(at);
  return heads;
}

class surveyor {
 public:
  surveyor(byte_span bytes, const stack_header &header) : bytes_(bytes), header_(header) {}

  survey run(std::optional<std::uint64_t> inode) {
    std::vector<std::size_t> heads = identified_heads(bytes_);
    result_.inodes = accepted_inodes(bytes_, heads, inode);
    std::erase_if(heads, [&](std::size_t at) {
      return std::find(result_.inodes.begin(), result_.inodes.end(), inode_characters(bytes_, at)) ==
             result_.inodes.end();
    });
    add_whole(heads);
    add_unidentified(true);
    add_flawed(heads);
    add_unidentified(false);
    add_near_misses();
    return std::move(result_);
  }

 private:
  // Of two whole records that share bytes at most one is what the writer left. One inside the other is a part of the
  // other's contents; otherwise the later one was written over the other's end.
  void add_whole(const std::vector<std::size_t> &heads) {
    for (const std::size_t at : heads) {
      record found;
      if (!whole_record(bytes_, at, found)) continue;
      if (!result_.records.empty() && found.offset < result_.records.back().end()) {
        record &before = result_.records.back();
        if (found.end() <= before.end()) continue;
        const bool found_wins = made_later(found, before);
        const record &loser = found_wins ? before : found;
        const record &winner = found_wins ? found : before;
        result_.damages.push_back(overlapped_by(winner.offset, loser.offset));
        if (!found_wins) continue;
        result_.records.pop_back();
      }
      result_.records.push_back(std::move(found));
    }
  }

  static damage overlapped_by(std::size_t winner, std::size_t loser) {
    return {loser, "record", "overlapped by the record at offset " + std::to_string(winner),
            "records that do not overlap"};
  }

  // Heads that verify in front of fields that do not end at the length.
  void add_flawed(const std::vector<std::size_t> &heads) {
    std::vector<record> flawed;
    for (std::size_t i = 0; i < heads.size(); ++i) {
      const std::size_t at = heads[i];
      if (record_at(at) != nullptr) continue;
      const std::size_t next = std::min(i + 1 < heads.size() ? heads[i + 1] : bytes_.size(), next_record(at));
      if (next < at + layout::kFieldsAt) {
        result_.damages.push_back(overlapped_by(next, at));
        continue;
      }
      record found;
      result_.damages.push_back(read_flawed(at, next, found));
      flawed.push_back(std::move(found));
    }
    for (record &found : flawed) result_.records.push_back(std::move(found));
    sort();
  }

  // Records without an identifier have little to be known by. Whole ones must not touch any other whole record; those
  // whose fields and length disagree must fill the room between two known places.
  void add_unidentified(bool whole) {
    std::vector<record> found_ones;
    for (std::size_t at = layout::kHeaderSize; at + layout::kFieldsAt <= bytes_.size(); ++at) {
      if (!head_is_unidentified(bytes_, at)) continue;
      if (const record *other = record_at(at)) {
        at = other->end() - 1;
        continue;
      }
      record found;
      const std::size_t next = next_record(at), end = at + layout::kPrefixSize + load_u32(bytes_, at);
      const bool ends_well = end <= next && (whole || end == next || is_recording_position(end));
      if (!ends_well) continue;
      if (whole) {
        if (!whole_record(bytes_, at, found) || !has_origin(found)) continue;
      } else {
        if (!starts_at_known_place(at)) continue;
        result_.damages.push_back(read_flawed(at, end, found));
      }
      at = found.end() - 1;
      found_ones.push_back(std::move(found));
    }
    for (record &found : found_ones) result_.records.push_back(std::move(found));
    sort();
  }

  // What the writer substitutes for missing texts is never empty.
  static bool has_origin(const record &found) {
    const auto present = [](const std::optional<std::string_view> &text) { return !text || !text->empty(); };
    return present(found.source) && present(found.version) && present(found.product);
  }

  // Reads what there is of a record whose fields and length disagree, up to `limit`, which is behind its head, and says
  // how they disagree.
  damage read_flawed(std::size_t at, std::size_t limit, record &found) {
    read_head(bytes_, at, found);
    found.intact = false;
    const std::size_t room = limit - at - layout::kPrefixSize;
    const byte_span body = bytes_.subspan(at + layout::kPrefixSize, std::min(room, layout::kBodyMax));
    const fields_result fields = read_fields(body, found);
    const bool fields_are_whole = fields.where != fields_end::not_reached;
    const std::size_t stored_end = at + layout::kPrefixSize + found.length;
    // A length that leads to a place where the writer was is right, and the fields are wrong.
    if (stored_end <= limit && (stored_end == next_record(at) || is_recording_position(stored_end))) {
      found.size = stored_end - at;
      return {at, "fields",
              fields_are_whole ? std::to_string(fields.body_length) + " bytes" : "they run past their record",
              std::to_string(found.length) + " bytes"};
    }
    found.size = layout::kPrefixSize + (fields_are_whole ? fields.body_length : body.size());
    return {at, "length", std::to_string(found.length),
            fields_are_whole ? std::to_string(fields.body_length) : "at most " + std::to_string(body.size())};
  }

  // One thing wrong in what otherwise is a record.
  void add_near_misses() {
    std::size_t known = 0;
    for (std::size_t at = layout::kHeaderSize; at + layout::kFieldsAt <= bytes_.size(); ++at) {
      while (known < result_.records.size() && result_.records[known].end() <= at) ++known;
      if (known < result_.records.size() && result_.records[known].offset <= at) {
        at = result_.records[known].end() - 1;
        continue;
      }
      find_near_miss(bytes_, at, at == layout::kHeaderSize || (known > 0 && result_.records[known - 1].end() == at),
                     result_.inodes, result_.damages);
    }
  }

  const record *record_at(std::size_t at) const {
    for (const record &r : result_.records)
      if (r.offset <= at && at < r.end()) return &r;
    return nullptr;
  }

  std::size_t next_record(std::size_t at) const {
    std::size_t next = bytes_.size();
    for (const record &r : result_.records)
      if (r.offset > at) next = std::min(next, r.offset);
    return next;
  }

  bool is_recording_position(std::size_t at) const { return std::cmp_equal(header_.recording_position, at); }

  bool starts_at_known_place(std::size_t at) const {
    return at == layout::kHeaderSize ||
           std::any_of(result_.records.begin(), result_.records.end(), [&](const record &r) { return r.end() == at; });
  }

  void sort() {
    std::sort(result_.records.begin(), result_.records.end(),
              [](const record &a, const record &b) { return a.offset < b.offset; });
  }

  byte_span bytes_;
  const stack_header &header_;
  survey result_;
};

}  // namespace

survey survey_records(byte_span bytes, const stack_header &header, std::optional<std::uint64_t> inode) {
  return surveyor(bytes, header).run(inode);
}

}  // namespace vosk
