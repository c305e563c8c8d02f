#include "front/registry_words.h"

namespace front {

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
        case no_volume:
            notices.fail("Prob reading volume %s: %s\n", subject, reason);
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
        case not_opened:
            notices.say("installed on another machine or in an image, not opened: %s\n", subject);
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
