#include "proof/fault_table.h"

#include <cerrno>
#include <map>

namespace proof {

namespace {

using Codes = std::map<int, int>;

Change nothing(int) {
  return {};
}
Change nothing_short(long long) {
  return {};
}
Site ignored(const char *call) {
  return {call, false, nothing};
}

std::string text(const std::string &value) {
  return "\"" + value + "\"";
}
std::string report(int code, int message, const std::string &inserts) {
  return std::to_string(code) + ": vosk.cat 1/" + std::to_string(message) + " (" + inserts + ")";
}
Change stop(int code, int message, const std::string &inserts) {
  return {.stop = Change::kStops, .code = code, .report = report(code, message, inserts)};
}
Change undo(int code, int message, const std::string &inserts) {
  Change change = stop(code, message, inserts);
  change.stop = Change::kUndoes;
  return change;
}

int code_for(const Codes &codes, int error, int otherwise) {
  auto found = codes.find(error);
  return found == codes.end() ? otherwise : found->second;
}

void append(std::vector<Site> &sites, std::vector<Site> more) {
  sites.insert(sites.end(), more.begin(), more.end());
}

const std::string kPath = text(kStack);
const std::string kDirectory = text(sandbox::kStacks);

// --- The stack's reservation, and how a push reports what it answers ---

Change reservation(int code) {
  switch (code) {
    case -28:
      return undo(22, 37, kPath);
    case -18:
      return undo(40, 36, kDirectory + ", 8192");
    case -16:
      return undo(20, 35, kPath);
    case -15:
    case -14:
    case -13:
      return undo(19, 29, kDirectory);
    default:
      return undo(99, 30, text("vk_allocate_file"));
  }
}

// `answer` turns the reservation's code into what its caller does with it.
std::vector<Site> reservation_sites(const std::function<Change(int)> &answer) {
  auto always = [answer](int code) { return [answer, code](int) { return answer(code); }; };
  auto cleared = [answer](int error) { return error == EINTR ? Change{} : answer(-18); };
  // Zeroing goes on behind a short write, but not behind one that made no progress.
  auto cleared_short = [answer](long long bytes) { return bytes == 0 ? answer(-18) : Change{}; };
  std::vector<Site> sites = {
      {"statfs", false,
       [answer](int error) {
         return answer(code_for({{ENOENT, -14}, {EACCES, -13}, {ESTALE, -15}}, error, -1));
       }},
      {"open", false,
       [answer](int error) {
         if (error == EINTR) return Change{};
         return answer(code_for(
             {{EACCES, -16}, {EROFS, -16}, {EMFILE, -20}, {EFBIG, -20}, {EDQUOT, -20}, {ENOSPC, -18}}, error, -1));
       }},
      {"lockf", false, always(-28)},
      {"fchmod", false, always(-16)},
      {"lseek", false, always(-18)},
  };
  for (int i = 0; i < 16; ++i) sites.push_back({"write", true, cleared, cleared_short});
  append(sites, {{"lseek", false, [](int) { return Change{.stop = Change::kStampsEnd}; }},
                 // Nothing looks at the stamp's result; a stack's header and first record lie over it.
                 {"write", true, nothing, nothing_short},
                 {"statfs", false, always(-1)},
                 ignored("lockf"),
                 ignored("close")});
  return sites;
}

// --- A push ---

std::vector<Site> lookup_sites() {
  return {{"stat", false,
           [](int error) {
             bool directory = error == EACCES || error == ENOENT;
             return directory ? stop(19, 29, kDirectory) : stop(99, 30, text("vk_get_env_info"));
           }},
          {"stat", false, [](int error) {
             if (error == EACCES) return stop(20, 33, kPath);
             // A file that seems to be missing is created; where it is there after all, that is no failure.
             return error == ENOENT ? Change{} : stop(99, 30, text("vk_get_env_info"));
           }}};
}

Change not_open(int error) {
  return stop(20, 38, kPath + ", " + std::to_string(error));
}

std::vector<Site> creation_sites() {
  std::vector<Site> sites = lookup_sites();
  append(sites, reservation_sites(reservation));
  auto header = [](int error) { return stop(41, 39, kPath + ", " + std::to_string(error)); };
  auto header_short = [header](long long) { return header(0); };
  append(sites, {{"open", false, not_open},
                 {"lockf", false, [](int) { return stop(22, 37, kPath); }},
                 {"write", true, header, header_short},
                 {"write", true, header, header_short}});
  return sites;
}

std::vector<Site> opening_sites() {
  std::vector<Site> sites = lookup_sites();
  append(sites, {{"open", false, not_open},
                 {"lockf", false, [](int error) { return stop(22, 40, kPath + ", " + std::to_string(error)); }}});
  return sites;
}

Change corrupt(const char *routine) {
  return stop(24, 41, kPath + ", " + text(routine));
}

// From the identifier to the end; `position` is where the record goes.
std::vector<Site> recording_sites(int position, bool clears) {
  auto control = [](int) { return corrupt("vk_get_stack_ctrl_info"); };
  // The fields behind a short read lie elsewhere than they should.
  auto control_short = [](long long) { return corrupt("vk_get_stack_ctrl_info"); };
  auto clearing = [](int) { return corrupt("vk_clear_records"); };
  auto zeroing = [](int error) { return error == EINTR ? Change{} : corrupt("vk_clear_records"); };
  auto zeroing_short = [](long long bytes) { return bytes == 0 ? corrupt("vk_clear_records") : Change{}; };
  auto seek_to = [](int shown) {
    return [shown](int error) {
      return stop(41, 43, kPath + ", " + std::to_string(shown) + ", " + std::to_string(error));
    };
  };
  auto record = [](int error) { return stop(41, 42, kPath + ", " + std::to_string(error)); };
  auto header = [](int error) { return stop(24, 39, kPath + ", " + std::to_string(error)); };
  std::vector<Site> sites = {
      {"stat", false,
       [](int) { return Change{.code = 37, .report = report(37, 10, text("vk_push_stack")), .no_identifier = true}; }},
      {"lseek", false, control},
      {"read", false, control, control_short},
      {"read", false, control, control_short},
  };
  if (clears) {
    append(sites, {{"lseek", false, clearing},
                   {"read", false, clearing},
                   {"lseek", false, clearing},
                   {"lseek", false, clearing},
                   {"write", true, zeroing, zeroing_short}});
  }
  append(sites, {{"lseek", false, seek_to(position)},
                 {"write", true, record, [record](long long) { return record(0); }},
                 // 24 is shown, although the seek is to 4.
                 {"lseek", false, seek_to(24)},
                 {"write", true, header, [header](long long) { return header(0); }},
                 ignored("lockf"),
                 ignored("close")});
  return sites;
}

// --- The copy of a detail file ---

// Every failure is the same attention; what differs is what the record cites. A missing name is what the copy needs.
std::vector<Site> copy_sites(const std::string &routine) {
  auto fails = [routine](const std::string &detail) {
    return [routine, detail](int) {
      return Change{.code = 32,
                    .report = report(32, 4, text(routine) + ", " + text(kDetail) + ", " + text(sandbox::kDumps)),
                    .copy_fails = true,
                    .detail = detail};
    };
  };
  auto untested = fails("");
  auto failed = fails(kDetail);
  auto name = [failed](int error) { return error == ENOENT ? Change{} : failed(error); };
  auto failed_short = [failed](long long) { return failed(0); };
  return {{"stat", false, untested},
          {"stat", false, untested},
          {"stat", false, failed},
          {"stat", false, failed},
          {"stat", false, failed},
          {"stat", false, name},
          {"open", false, failed},
          {"open", false, failed},
          {"read", false, failed},  // a short read is followed by more of them, which would shift this list
          {"write", false, failed, failed_short},
          {"read", false, failed},
          {"write", false, failed, failed_short},
          {"read", false, failed},
          ignored("close"),
          ignored("close")};
}

// --- The environment ---

std::vector<Site> creation_of_environment_sites() {
  const std::string number = "vk_create_env";
  auto not_set = [](const std::string &before, bool socket_closed) {
    return [=](int) {
      Change change = stop(16, 27, "");
      change.variables = before;
      change.socket_closed = socket_closed;
      return change;
    };
  };
  auto refused = [](int code, int message) {
    Change change = stop(code, message, "");
    change.socket_closed = true;
    return change;
  };
  auto unless_interrupted = [](const std::function<Change(int)> &change) {
    return [change](int error) { return error == EINTR ? Change{} : change(error); };
  };
  return {{"stat", false,
           [=](int error) { return error == EACCES || error == ENOENT ? refused(19, 29) : refused(99, 30); }},
          {"stat", false,
           [=](int error) {
             if (error == ENOENT) return Change{};
             return error == EACCES ? refused(19, 29) : refused(99, 30);
           }},
          {"putenv", false, not_set("", true)},
          {"putenv", false, not_set("1", true)},
          {"putenv", false, not_set("12", true)},
          {"socket", false, unless_interrupted(not_set("123", true))},
          {"ioctl", false, unless_interrupted(not_set("123", false))},
          {"ioctl", false, unless_interrupted(not_set("123", true))},
          {"ioctl", false, unless_interrupted(not_set("123", true))},
          {"putenv", false, not_set("123", false)},
          {"putenv", false, not_set("1234", false)}};
}

std::vector<Site> inheritance_sites() {
  auto not_set = [](const std::string &before) {
    return [before](int) {
      Change change = stop(16, 27, "");
      change.variables = before;
      return change;
    };
  };
  return {{"putenv", false, not_set("")}, {"putenv", false, not_set("3")}};
}

// --- The decoder ---

std::vector<Site> decoding_sites() {
  auto elsewhere = [](bool socket_closed) {
    return [socket_closed](int error) {
      return error == EINTR ? Change{} : Change{.socket_closed = socket_closed, .not_on_node = true};
    };
  };
  auto ends = [](int) { return Change{.code = -24, .not_found = true}; };
  return {{"socket", false, elsewhere(true)},
          {"ioctl", false, elsewhere(false)},
          {"ioctl", false, elsewhere(true)},
          {"ioctl", false, elsewhere(true)},
          {"opendir", false,
           [](int error) {
             return Change{.code = code_for({{EACCES, -13}, {ENOENT, -14}}, error, -1), .not_found = true};
           }},
          {"readdir_r", false, ends},
          {"readdir_r", false, ends},
          ignored("readdir_r"),  // the file was found
          ignored("readdir_r"),
          ignored("closedir")};
}

// --- The first trace line ---

std::vector<Site> trace_sites() {
  auto code = [](int value) { return Change{.stop = Change::kStops, .code = value}; };
  auto fails = [code](int value) { return [=](int) { return code(value); }; };
  auto fails_short = [code](int value) { return [=](long long) { return code(value); }; };
  std::vector<Site> sites = {{"stat", false, [=](int error) {
                                if (error == ENOENT) return Change{};
                                return code(code_for({{EACCES, -13}, {ESTALE, -15}}, error, -1));
                              }}};
  append(sites, reservation_sites([](int value) { return Change{.stop = Change::kUndoes, .code = value}; }));
  // A file whose header line went astray has no header.
  for (std::size_t i = 0; i < sites.size(); ++i) {
    bool stamp = sites[i].call == "write" && sites[i - 1].call == "lseek" && sites[i + 1].call == "statfs";
    if (!stamp) continue;
    sites[i].fault = fails(-26);
    sites[i].shortened = fails_short(-26);
    sites[i - 1].fault = [](int) { return Change{.stop = Change::kStampsEnd, .code = -26}; };
  }
  append(sites, {{"open", false,
                  [=](int error) {
                    if (error == EINTR) return Change{};
                    return code(code_for({{ENOENT, -24}, {EACCES, -25}, {EMFILE, -20}, {EROFS, -16}}, error, -1));
                  }},
                 {"lseek", false, fails(-26)},
                 {"lockf", false, fails(-28)},
                 {"read", false, fails(-26), fails_short(-26)},
                 {"lseek", false, fails(-26)},
                 {"write", true, fails(-26), fails_short(-26)},
                 {"lseek", false, fails(-26)},
                 {"write", true, fails(-26), fails_short(-26)},
                 {"lseek", false, fails(-26)},
                 {"write", true, fails(-26), fails_short(-26)},
                 ignored("lseek"),
                 {"lockf", false, [](int) { return Change{.stop = Change::kGoesOn, .code = -29}; }},
                 ignored("close")});
  return sites;
}

}  // namespace

bool is_check_of_our_own(const std::string &call) {
  return call == "getrlimit" || call == "fstatat" || call == "fcntl";
}

std::vector<Site> sites_of(const Road &road) {
  std::vector<Site> sites;
  if (road.name == "create") return creation_of_environment_sites();
  if (road.name == "inherit") return inheritance_sites();
  if (road.name == "log with a detail file") return copy_sites("vk_log_error");
  if (road.name == "decode") return decoding_sites();
  if (road.name == "display") return {ignored("catopen"), ignored("catopen")};
  if (road.name == "first trace line") return trace_sites();
  if (!road.uses_stack) return sites;
  const int behind_three_records = 24 + 200 + 277 + 500;
  if (road.name == "first push") {
    sites = creation_sites();
    append(sites, recording_sites(24, false));
  } else if (road.name == "push that wraps") {
    sites = opening_sites();
    append(sites, recording_sites(24, true));
  } else {
    sites = opening_sites();
    if (road.name == "push with a detail file") append(sites, copy_sites("vk_push_stack"));
    append(sites, recording_sites(behind_three_records, false));
  }
  return sites;
}

}  // namespace proof
