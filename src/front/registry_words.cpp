#include "front/registry_words.h"

namespace front {

namespace {

// An entry that is cut off is what a sudden end leaves; a part that its logs spoil is damage.
void say_logs(const std::string& path, const model::log_findings& logs, io::notices& notices)
{
    const auto number = [](std::uint64_t count) { return static_cast<unsigned long long>(count); };
    notices.say("hive %s was not closed: taken of its logs were %llu entries with %llu pages; "
                "databases added %llu, removed %llu, changed %llu\n",
                path.c_str(), number(logs.outcome.entries), number(logs.outcome.pages),
                number(logs.added), number(logs.removed), number(logs.changed));
    if (!logs.outcome.is_complete) {
        notices.say("hive %s: its logs hold entries that are damaged or do not follow, left out\n",
                    path.c_str());
    }
    if (logs.outcome.bad_bins != 0) {
        notices.fail("hive %s: %llu of its parts are damaged by its logs, not read\n", path.c_str(),
                     number(logs.outcome.bad_bins));
    }
}

} // namespace

void say_findings(const std::vector<model::registry_finding>& findings, io::notices& notices)
{
    using enum model::registry_finding_kind;
    for (const model::registry_finding& finding : findings) {
        const char* const subject = finding.subject.c_str();
        const char* const reason = finding.reason.c_str();
        switch (finding.kind) {
        case hive_missing:
            notices.say("no hive %s: %s\n", subject, reason);
            break;
        case hive_unread:
            notices.fail("Prob reading hive %s: %s\n", subject, reason);
            break;
        case no_memory:
            notices.fail("Prob reading hive %s: memory has run out\n", subject);
            break;
        case no_key:
            notices.say("hive %s has no key of installed databases\n", subject);
            break;
        case damaged:
            notices.fail("hive %s is damaged, not all that it should hold was read\n", subject);
            break;
        case changed:
            notices.fail("%s changed while it was read\n", subject);
            break;
        case logs_taken:
            say_logs(finding.subject, finding.logs, notices);
            break;
        case logs_missing:
            notices.say(
                "hive %s was not closed, and no log beside it counts: what was written last "
                "may be missing\n",
                subject);
            break;
        case logs_left_out:
            notices.say("hive %s was not closed, its logs are left out\n", subject);
            break;
        case not_opened:
            notices.say("installed on another machine, not opened: %s\n", subject);
            break;
        case leaves_volume:
            notices.say("installed on no drive or outside of the volume, not opened: %s\n",
                        subject);
            break;
        case names_no_file:
            notices.fail("installed under a path that names no file: %s\n", subject);
            break;
        }
    }
}

void say_doubts(model::joining how, const std::string& path, io::notices& notices)
{
    if (how == model::joining::ambiguous) {
        notices.say("%s: several keys of the registry have this path, shown is the first\n",
                    path.c_str());
    } else if (how == model::joining::not_joined) {
        notices.say("%s: the registry knows this name, but not at this path\n", path.c_str());
    }
}

} // namespace front
