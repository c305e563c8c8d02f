#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "model/examination.h"
#include "model/place.h"
#include "model/registry_lists.h"
#include "model/subject_judge.h"
#include "support/database_text.h"
#include "support/hive_builder.h"
#include "support/reports.h"
#include "support/sample_database.h"

namespace {

using model::finding;
using test_support::bytes;
using test_support::filetime;
using test_support::loaded_database;

const model::knowledge& known()
{
    static const model::knowledge tables;
    return tables;
}

using id_set = std::set<std::string>;

void add_ids(id_set& ids, const auto& findings)
{
    for (const finding& one : findings) {
        ids.insert(one.kind->id);
    }
}

// The identifiers of all that is found in an image.
id_set ids_in(const bytes& image, bool is_vendors_own = false)
{
    const loaded_database loaded(image);
    const model::examined_database examined{loaded.database, known(), is_vendors_own,
                                            filetime(2026, 1, 1)};
    const model::examination all(examined);
    id_set ids;
    add_ids(ids, all.of_database().all());
    const auto judge = all.make_judge();
    model::subject seen;
    for (const std::uint32_t record : all.subjects()) {
        judge->look_at(seen, record);
        add_ids(ids, seen.findings.all());
    }
    return ids;
}

// Tags of a database list, which the texts of the table stand in; what is indented stands in a list.
bytes database_of(const std::string& tags)
{
    std::string text = "database\n";
    std::string line;
    for (const char c : tags + '\n') {
        if (c == '\n' || c == '|') {
            text += "  " + line + "\n";
            line.clear();
        } else {
            line += c;
        }
    }
    return test_support::database_from_text(text);
}

// An executable with one fix and its command line.
std::string exe_with(const std::string& name, const std::string& fix, const std::string& line = "")
{
    return "exe|  name = " + name + "|  shim_ref|    name = " + fix +
           (line.empty() ? "" : "\n    command_line = " + line);
}

std::string patched(const std::string& operations)
{
    return "library|  patch @p|    name = P|    patch_bits|" + operations +
           "|exe|  name = a.exe|  patch_ref|    name = P|    patch_tagid = @p";
}

std::string digits(std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += "0123456789abcdef"[i * 7 % 16];
        text += "0123456789abcdef"[i * i * 31 / 16 % 16];
        text += ' ';
    }
    return text;
}

struct signal_row {
    const char* id;
    std::string raises;
    std::string nearly;
};

TEST(findings, are_raised_by_what_they_name_and_not_by_what_is_near_it)
{
    const std::string id = "database_id = ";
    std::string base64; // 60 characters
    while (base64.size() < 60) {
        base64 += "Qz4+";
    }
    const auto defined = [](const std::string& name) {
        return "library|  shim @s|    name = " + name +
               "|exe|  name = a.exe|  shim_ref|    name = Harmless|    shim_tagid = @s";
    };
    const std::string matched = "exe|  name = a.exe|  matching_file|    name = *";
    const signal_row rows[] = {
        {"target.core", "exe|  name = SvcHost.exe", "exe|  name = svchosts.exe"},
        {"target.security", "exe|  name = MsMpEng.exe", "exe|  name = MsMpEng2.exe"},
        {"target.elevating", "exe|  name = fodhelper.exe", "exe|  name = helper.exe"},
        {"target.host", "exe|  name = wscript.exe", "exe|  name = script.exe"},
        {"target.secrets", "exe|  name = outlook.exe", "exe|  name = look.exe"},
        {"target.wildcard", "exe|  name = a*.exe", matched},
        {"target.loose", matched, matched + "|    size = 1"},
        {"inject.module", exe_with("a.exe", "injectdll", "b.dll"), exe_with("a.exe", "InjectDlls")},
        {"inject.path", exe_with("a.exe", "Own", "-q C:\\ProgramData\\x\\b.dll"),
         exe_with("a.exe", "Own", "-q C:\\Program Files\\x\\b.dll")},
        {"inject.path", exe_with("a.exe", "InjectDll", "b.dll;c"),
         exe_with("a.exe", "InjectDll", "b.dll;c.dll")},
        {"inject.path", exe_with("a.exe", "Own", "\\\\server\\b.dll"),
         exe_with("a.exe", "Own", "%windir%\\b.dll")},
        {"inject.path", exe_with("a.exe", "Own", "Load(%HOMEPATH%\\b.dll#3)"),
         exe_with("a.exe", "Own", "Load(C:\\Program Files (x86)\\b.dll#3)")},
        {"inject.path", exe_with("a.exe", "Own", "C:\\Users\\b.dll:Entry"),
         exe_with("a.exe", "Own", "C:\\Users\\b.dll\\c")},
        {"inject.path", exe_with("a.exe", "Own", "..\\b.dll"), exe_with("a.exe", "Own", "b.dll")},
        {"inject.own-module", "library|  shim|    name = S|    dllfile = mine.dll",
         "library|  shim|    name = S|    dllfile = acgenral.DLL"},
        {"redirect.exe", exe_with("a.exe", "RedirectEXE", "b.exe"),
         exe_with("a.exe", "RedirectExe2")},
        {"redirect.path", exe_with("a.exe", "CorrectFilePaths", "%windir%\\a.ini;%TEMP%\\a.ini"),
         exe_with("a.exe", "CorrectFilePaths", "%TEMP%\\a.ini;%windir%\\a.ini")},
        {"redirect.path", exe_with("a.exe", "SetEnvironmentVariable", "PATH=C:\\Users\\a"),
         exe_with("a.exe", "SetEnvironmentVariable", "HOME=C:\\Users\\a")},
        {"redirect.path", exe_with("a.exe", "SetEnvironmentVariable", "PATH;C:\\Users\\a"),
         exe_with("a.exe", "SetEnvironmentVariable", "HOME;C:\\Users\\a")},
        {"redirect.path",
         exe_with("a.exe", "ModifyShellLinkPath", "\"C:\\Windows\\a.exe\" \"C:\\Users\\b.exe\""),
         exe_with("a.exe", "ModifyShellLinkPath", "C:\\Windows\\a.exe x\\Users\\b.exe")},
        {"patch.custom", patched("      match 1 a.exe = 00"), exe_with("a.exe", "P")},
        {"patch.code", patched("      match 1 a.exe = 74|      replace 1 a.exe = eb"),
         patched("      match 1 a.exe = 74|      replace 1 a.exe = 33")},
        {"patch.code", patched("      replace 1 a.exe = 33"), patched("      match 1 a.exe = 33")},
        {"patch.code", patched("      match 1 a.exe = 74|      replace 1 a.exe = " + digits(32)),
         patched("      match 1 a.exe = 74|      replace 1 a.exe = " + digits(31))},
        {"patch.core", patched("      match 1 NtDll.dll = 74"),
         patched("      match 1 ntdlls.dll = 74")},
        {"weaken.fix", exe_with("a.exe", "DisableNX"), exe_with("a.exe", "IgnoreException")},
        {"elevate.run", "exe|  name = a.exe|  flag_ref|    name = RunAsAdmin",
         "exe|  name = a.exe|  flag_ref|    name = RunAsInvoker"},
        {"block.program", exe_with("taskmgr.exe", "TerminateExe"),
         exe_with("task.exe", "TerminateExe")},
        {"block.program", "exe|  name = avp.exe|  apphelp|    problemseverity = 2",
         "exe|  name = avp.exe|  apphelp|    problemseverity = 1"},
        {"hide.ui", exe_with("lsass.exe", "IgnoreMessageBox"),
         exe_with("a.exe", "IgnoreMessageBox")},
        {"engine.off", "exe|  name = a.exe|  shim_engine_off", "exe|  name = a.exe|  trace_pca"},
        {"lib.own", "library|  flag|    name = F", "library|  inexclude|    module = *"},
        {"apphelp.link", "apphelp|  link|    link_url = http://example.org/",
         "apphelp|  link|    link_url = https://support.microsoft.com/kb"},
        {"apphelp.link", "apphelp|  link|    link_url = microsoft.com.example.org",
         "apphelp|  link|    link_text = example.org"},
        {"msi.action", "library|  msi_custom_action|    name = A", "msi_package|  name = a.msi"},
        {"driver.entries", "kdriver|  name = a.sys", "exe|  name = a.sys"},
        {"data.payload",
         "library|  file|    name = f|    file_bits = 4d 5a " + digits(58) +
             "40 00 00 00 \"PE\" 00 00",
         "library|  file|    name = f|    file_bits = 4d 5a " + digits(58) +
             "40 00 00 00 \"PX\" 00 00"},
        {"data.payload", exe_with("a.exe", "Own", "PowerShell -x y"),
         exe_with("powershell.exe", "Own", "PowerShell - Studio")},
        {"data.payload", exe_with("a.exe", "Own", base64 + "Qz4+Q"),
         exe_with("a.exe", "Own", base64 + "Qz4")},
        {"data.payload", exe_with("a.exe", "Own", base64 + "Qz4+"),
         exe_with("C:\\WindowsPowerShell\\powershell_ise.exe", "Own", digits(99))},
        // In lines, but not of words.
        {"data.payload",
         "library|  file|    name = f|    file_bits = \"" + base64 + "\" 0d 0a \"Qz4+\"",
         "library|  file|    name = f|    file_bits = \"" + base64.substr(0, 31) + "\" 0d 0a \"" +
             base64.substr(0, 31) + "\" 0d 0a \"Qz4+\""},
        {"target.loose", "exe|  name = a.exe|  matching_file|    name = *",
         "exe|  name = a.exe|  matching_file|    match_logic_not|    name = *"},
        // What a record gets is found wherever in it that stands, and by the name of what it leads to.
        {"inject.module", "exe|  name = a.exe|  action|    shim_ref|      name = InjectDll",
         "exe|  name = a.exe|  flag_ref|    name = InjectDll"},
        {"inject.module",
         "exe|  name = a.exe|  layer|    name = L|    shim_ref|      name = InjectDll",
         "exe|  name = a.exe|  layer|    name = InjectDll"},
        {"inject.module", defined("InjectDll"), defined("Other")},
        {"inject.module",
         "library|  layer @l|    name = L|    layer|      layer_tagid = @l|    "
         "shim_ref|      name = InjectDll",
         "library|  layer|    name = L|    shim_ref|      name = Other"},
        {"patch.custom", "library|  patch @p|    name = P|app|  data|    patch_tagid = @p",
         "library|  shim @p|    name = P|app|  data|    patch_tagid = @p"},
        {"target.core", "exe|  name = a.exe|  name = lsass.exe",
         "exe|  name = a.exe|  vendor = lsass.exe"},
        {"shape.twice", "exe|  name = a.exe|  shim_ref|    name = A|    name = B",
         "exe|  name = a.exe|  shim_ref|    name = A|    module = B"},
        {"inject.own-module", "library|  shim|    name = S|    dllfile = C:\\x\\acgenral.dll",
         "library|  shim|    name = S|    dllfile = acgenral.dll"},
        {"inject.path", exe_with("a.exe", "Own", "C:\\Windows\\..\\b.dll"),
         exe_with("a.exe", "Own", "C:\\Windows\\..\\x\\b.dll")},
        {"inject.path", exe_with("a.exe", "Own", "%SystemDrive%\\b.dll"),
         exe_with("a.exe", "Own", "%SystemDrive%\\x\\b.dll")},
        {"apphelp.link",
         "apphelp|  link|    link_url = https://microsoft.com:" + std::string(600, 'a') + "@x/",
         "apphelp|  link|    link_url = https://microsoft.com/" + std::string(400, 'a')},
        {"fix.redirect", exe_with("a.exe", "CorrectFilePaths", "a;b"),
         exe_with("a.exe", "CorrectFilePaths", "%windir%;%TEMP%")},
        {"fix.other", "exe|  name = a.exe|  layer|    name = RegisterAppRestart",
         "exe|  name = a.exe|  layer|    name = NT4SP5"},
        {"who.vendor", "exe|  name = a.exe|  vendor = Microsoft Corp",
         "exe|  name = a.exe|  company_name = Microsoft"},
        {"who.vendor", "library|  app|    vendor = Microsoft",
         "library|  app|    name = Microsoft"},
        {"who.vendor", "name = Microsoft things", "name = Micro things"},
        {"who.default", "name = New Database(1)", "name = New Database of ours"},
        {"who.default", "name = {7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63}", "name = 7a3c5e10"},
        {"who.duplicate", exe_with("a.exe", "One") + "|" + exe_with("A.EXE", "Two"),
         exe_with("a.exe", "One") + "|" + exe_with("A.EXE", "One")},
        {"who.duplicate",
         "exe|  name = a.exe|  exe_id = 7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63\n"
         "exe|  name = b.exe|  exe_id = 7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63",
         "exe|  name = a.exe|  exe_id = 7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63\n"
         "exe|  name = b.exe|  exe_id = 7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a64"},
        {"who.duplicate",
         "app|  name = A|  shim_ref|    name = One|app|  name = a|  shim_ref|    name = Two",
         exe_with("A", "One") + "|app|  name = A|  shim_ref|    name = Two"},
        {"who.id", id + "00000000-0000-0000-0000-000000000000",
         id + "7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63"},
        {"who.id", id + "12345678-1234-1234-1234-123456789abc",
         id + "12345678-1234-1234-1234-123456789abd"},
        {"who.id", id + "aaaaaaaa-bbbb-1234-dddd-eeeeeeeeeeee",
         id + "aaaaaaaa-bbbb-1235-dddd-eeeeeeeeeeee"},
        {"who.id", id + "00112233-4455-6677-8899-aabbccddeeff",
         id + "00112233-4455-6677-8899-aabbccddeefe"},
        {"who.id", id + "03020100-0504-0706-0809-0a0b0c0d0e0f",
         id + "03020100-0405-0607-0809-0a0b0c0d0e0f"},
        {"who.id", id + "a1b2c3d4-dead-beef-95d1-2f7c4e8b6a30",
         id + "a1b2c3d4-dead-bee7-95d1-2f7c4e8b6a30"},
        {"who.id", id + "f9ab2228-3312-4a73-b6f9-936d70e112ef",
         id + "f9ab2228-3312-4a73-b6f9-936d70e112ee"},
        {"who.compiler", "name = a", "compiler_version = 3"},
        {"reg.update-name", "name = KB123456 for all", "name = Keyboard 123456"},
        {"reg.update-name", "name = A Hotfix", "name = A Fix"},
        {"time.odd", "time = 0", "time = 2001-01-01 00:00:00"},
        {"time.odd", "time = 2026-01-01 00:00:01", "time = 2026-01-01 00:00:00"},
        {"time.odd", "time = 2000-12-31 23:59:59", "name = none"},
        {"shape.silent", "exe|  name = a.exe|  apphelp|    problemseverity = 1|    htmlhelpid = 7",
         "exe|  name = a.exe|  apphelp|    problemseverity = 1|    htmlhelpid = 7\n"
         "apphelp|  htmlhelpid = 7|  apphelp_title = Why"},
    };
    for (const signal_row& row : rows) {
        SCOPED_TRACE(row.raises);
        EXPECT_TRUE(ids_in(database_of(row.raises)).contains(row.id)) << row.id;
        EXPECT_FALSE(ids_in(database_of(row.nearly)).contains(row.id)) << row.id;
    }
}

TEST(findings, about_the_build_of_a_database_want_it_malformed)
{
    namespace tag = sdb::tag;
    const auto make = [](auto&& change) {
        test_support::sdb_builder b;
        change(b);
        return ids_in(b.build());
    };
    const auto indexed = [](std::string_view target) {
        return [target](test_support::sdb_builder& b) {
            b.add(b.label("exe", b.list(tag::exe, {b.text(tag::name, "a.exe")})));
            b.add(b.label("other", b.list(tag::app, {b.text(tag::name, "a.exe")})));
            b.index(tag::exe, tag::name, 0, {{1, target}});
        };
    };
    EXPECT_TRUE(make(indexed("other")).contains("shape.no-index"));
    EXPECT_FALSE(make(indexed("exe")).contains("shape.no-index"));

    const auto ends_with = [](bytes last) {
        return [last](test_support::sdb_builder& b) {
            b.add(b.list(tag::exe, {b.text(tag::name, "a.exe")}));
            b.trail(b.raw(last));
        };
    };
    EXPECT_TRUE(make(ends_with({1, 2, 3, 4})).contains("shape.trailing"));
    EXPECT_FALSE(make(ends_with({})).contains("shape.trailing"));

    const auto has_string = [](bool is_used) {
        return [is_used](test_support::sdb_builder& b) {
            b.table_text("C:\\hidden.dll");
            b.add(b.list(tag::exe, {b.text(tag::name, is_used ? "C:\\hidden.dll" : "a.exe")}));
        };
    };
    EXPECT_TRUE(make(has_string(false)).contains("shape.strings"));
    EXPECT_FALSE(make(has_string(true)).contains("shape.strings"));

    const auto has_tag = [](std::uint16_t one) {
        return [one](test_support::sdb_builder& b) { b.add(b.dword(one, 1)); };
    };
    EXPECT_TRUE(make(has_tag(0x4ffe)).contains("shape.unknown"));
    EXPECT_FALSE(make(has_tag(tag::flags)).contains("shape.unknown"));

    // Of 4,096 bytes so many in the middle, the others zeros.
    const auto packed = [](unsigned step, std::size_t count) {
        return [step, count](test_support::sdb_builder& b) {
            bytes data(4096);
            std::uint32_t state = 1;
            for (std::size_t i = 0; i < count; ++i) {
                state = state * 1664525 + 1013904223;
                data[(data.size() - count) / 2 + i] =
                    static_cast<std::uint8_t>((state >> 24) / step);
            }
            b.add(b.list(tag::data, {b.text(tag::name, "d"), b.binary(tag::data_bits, data)}));
        };
    };
    EXPECT_TRUE(make(packed(1, 4096)).contains("data.payload"));  // 8 bits a byte
    EXPECT_FALSE(make(packed(2, 4096)).contains("data.payload")); // 7
    EXPECT_TRUE(make(packed(1, 333)).contains("data.payload"));
    EXPECT_FALSE(make(packed(1, 200)).contains("data.payload"));
}

TEST(findings, weigh_nothing_in_a_database_of_the_vendors_own)
{
    const bytes image = test_support::sample_database();
    const loaded_database loaded(image);
    const model::examined_database examined{loaded.database, known(), true, 0};
    model::examination all(examined);
    EXPECT_EQ(all.with_high_finding(), 0u);
    const id_set ids = ids_in(image, true);
    EXPECT_TRUE(ids.contains("patch.code"));
    EXPECT_FALSE(ids.contains("patch.custom")); // which says that it is a custom one
}

struct place_row {
    const char* place;
    const char* id;
    id_set ids;
};

TEST(findings, about_places_are_those_of_the_folder_and_the_name)
{
    constexpr const char* own_id = "7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63";
    constexpr const char* main_id = "11111111-1111-1111-1111-111111111111";
    const std::string custom = "\\Windows\\AppPatch\\Custom\\";
    const std::string named = custom + "{7A3C5E10-94D2-4B6F-8E21-C0D9F45B7A63}.sdb";
    const std::string named64 = custom + "Custom64\\{7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63}.sdb";
    const std::string other = custom + "other.sdb";
    const place_row rows[] = {
        {named.c_str(), own_id, {}},
        {named64.c_str(), own_id, {"who.platform"}},
        {other.c_str(), own_id, {"place.name"}},
        {"\\Windows\\AppPatch\\sysmain.sdb", main_id, {}},
        {"\\Windows\\AppPatch\\mine.sdb", own_id, {"place.outside"}},
        {"\\Windows\\System32\\CompatTel\\x.sdb", own_id, {}},
        {"\\Windows\\Temp\\x.sdb", own_id, {"place.outside", "place.writable"}},
        {"\\Windows\\Temporary\\x.sdb", own_id, {"place.outside"}},
        {"\\x.sdb", own_id, {"place.outside", "place.writable"}},
        {"\\Users\\a\\x.dat", own_id, {"place.outside", "place.writable", "place.extension"}},
    };
    const loaded_database loaded(database_of("name = a"));
    for (const place_row& row : rows) {
        SCOPED_TRACE(row.place);
        const model::examined_database examined{loaded.database, known(), false, 0};
        model::database_identity identity;
        identity.identifier = row.id;
        identity.platform = 1;
        model::finding_list findings;
        model::judge_place(findings, examined, row.place, row.place, identity);
        id_set ids;
        add_ids(ids, findings.all());
        EXPECT_EQ(ids, row.ids);
        EXPECT_EQ(model::is_vendors_own(known(), row.place, identity), row.id == main_id);
        identity.has_several_identifiers = true;
        EXPECT_FALSE(model::is_vendors_own(known(), row.place, identity));
    }
    EXPECT_EQ(model::place_of("/mnt/Windows/AppPatch/a.sdb", {"/mnt"}),
              "\\Windows\\AppPatch\\a.sdb");
    EXPECT_EQ(model::place_of("/x/y/windows/AppPatch/a.sdb", {}), "\\windows\\AppPatch\\a.sdb");
    EXPECT_EQ(model::place_of("/x/y/a.sdb", {}), std::nullopt);
    EXPECT_EQ(model::place_of("/x/Users/b/Windows/AppPatch/a.sdb", {}), std::nullopt);
}

TEST(findings, about_a_file_come_from_what_is_kept_of_it)
{
    constexpr std::uint64_t day = 864'000'000'000;
    constexpr std::uint64_t odd = 133'000'000'000'000'001; // no whole second
    const auto named_at = [](std::uint64_t time) {
        return std::vector<io::kept_times>{{"a.sdb", {0, 0, time}, 0},
                                           {"A~1", {0, 0, odd + day}, 0}};
    };
    const struct {
        const char* what;
        io::file_history kept;
        std::multiset<std::string> ids; // with which of its words
    } rows[] = {
        {"nothing", {.times = {odd, odd, odd}, .names = named_at(odd)}, {}},
        {"copied, with its time", {.times = {odd - day, odd, odd}, .names = named_at(odd)}, {}},
        {"made before it was named",
         {.times = {odd, odd, odd - 1}, .names = named_at(odd)},
         {"time.file 0"}},
        {"whole seconds",
         {.times = {odd - 1, odd, odd + day - 1}, .names = named_at(odd)},
         {"time.file 1"}},
        {"before it was compiled",
         {.times = {odd - 2 * day, odd, odd - 2 * day}, .names = named_at(0)},
         {"time.file 2", "time.file 3"}},
        {"attributes and a reparse point",
         {.times = {odd, odd, odd}, .is_hidden = true, .is_system = true, .reparse_kind = 1},
         {"place.hidden 0", "place.hidden 1", "place.hidden 4"}},
        {"streams",
         {.times = {odd, odd, odd}, .stream = "own", .other_streams = {"b", "c"}},
         {"place.hidden 2", "place.hidden 2", "place.hidden 3"}},
    };
    const loaded_database loaded(database_of("name = a"));
    const model::examined_database examined{loaded.database, known(), false, 0};
    model::database_identity identity;
    identity.time = odd - day - day / 2;
    for (const auto& row : rows) {
        model::finding_list findings;
        model::judge_file(findings, examined, row.kept, identity);
        std::multiset<std::string> ids;
        for (const model::finding& one : findings.all()) {
            ids.insert(one.kind->id + ' ' + std::to_string(one.variant));
        }
        EXPECT_EQ(ids, row.ids) << row.what;
    }
}

// What a registry says, and what is found in it.
struct registry_row {
    const char* what;
    model::installed_database entry;
    std::vector<model::custom_entry> customs;
    bool is_uninstallable;
    id_set ids;
};

TEST(findings, about_the_registry_are_what_does_not_fit_together)
{
    const std::string id = "{7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63}";
    const std::string path = "C:\\Windows\\AppPatch\\Custom\\" + id + ".sdb";
    const std::uint64_t moment = filetime(2025, 5, 5);
    const std::uint64_t minutes = std::uint64_t{60} * 10'000'000;
    const auto entry = [&](std::uint64_t key_time, std::uint32_t type, const char* description,
                           const std::string& at) {
        return model::installed_database{id, key_time, moment, type, at, description};
    };
    const model::custom_entry usual{"a.exe", id, moment, moment};
    const registry_row rows[] = {
        {"all fits",
         entry(moment + 10 * minutes, 0x10000, "Ours", path),
         {usual},
         true,
         {"reg.new"}},
        {"its file is gone",
         entry(moment, 0x10000, "Ours", "C:\\Windows\\AppPatch\\Custom\\gone.sdb"),
         {usual},
         true,
         {"reg.new", "reg.missing"}},
        {"under InstalledSDB alone",
         entry(moment, 0x10000, "Ours", path),
         {},
         true,
         {"reg.new", "reg.half"}},
        {"under Custom alone",
         entry(moment, 0x10000, "Ours", path),
         {usual, {"b.exe", "{b}", moment, moment}},
         true,
         {"reg.new", "reg.half"}},
        {"no way back",
         entry(moment, 0x10000, "Ours", path),
         {usual},
         false,
         {"reg.new", "reg.no-uninstall"}},
        {"a main type",
         entry(moment, 0x80020000, "Ours", path),
         {usual},
         true,
         {"reg.new", "reg.type"}},
        {"poses",
         entry(moment, 0x10000, "Security fix", path),
         {usual},
         true,
         {"reg.new", "reg.update-name"}},
        {"a late key",
         entry(moment + 10 * minutes + 1, 0x10000, "Ours", path),
         {usual},
         true,
         {"reg.new", "time.keys"}},
        {"another number",
         entry(moment, 0x10000, "Ours", path),
         {{"a.exe", id, moment + 11 * minutes, moment}},
         true,
         {"reg.new", "time.keys"}},
        {"no time of its own",
         entry(0, 0x10000, "Ours", path),
         {{"a.exe", id, moment + 11 * minutes, moment + 11 * minutes}},
         true,
         {"reg.new", "time.keys"}},
        {"a strange place",
         entry(moment, 0x10000, "Ours", "C:\\Users\\a\\b.sdb"),
         {usual},
         true,
         {"reg.new", "place.outside", "place.writable"}},
    };
    const model::file_probe is_there = [](const std::string& stored) {
        return std::optional(stored.find("gone") == std::string::npos);
    };
    for (const registry_row& row : rows) {
        SCOPED_TRACE(row.what);
        model::registry_lists lists;
        lists.customs = row.customs;
        lists.has_uninstall_key = true;
        if (row.is_uninstallable) {
            lists.uninstalls.insert(id + ".sdb");
        }
        id_set ids;
        const model::installed_databases installed({{id, row.entry}});
        for (const auto& one : model::judge_registry(known(), installed, lists, is_there)) {
            ids.insert(one.found.kind->id);
        }
        EXPECT_EQ(ids, row.ids);
    }

    model::registry_lists lists;
    lists.layers = {{"C:\\Users\\a\\b.exe", "~ RunAsAdmin", "U.DAT"},
                    {"C:\\Program Files\\b.exe", "~ RunAsAdmin", "U.DAT"},
                    {"C:\\Users\\a\\c.exe", "~ Win7RTM", "U.DAT"}};
    lists.drivers = {{"a.sys", "SomeShim", "SYSTEM"}};
    std::vector<std::string> ids;
    for (const auto& one : model::judge_registry(known(), {}, lists, {})) {
        ids.push_back(one.found.kind->id + " " + one.program + " " + one.found.second.text);
    }
    EXPECT_EQ(ids, (std::vector<std::string>{"reg.layer C:\\Users\\a\\b.exe ~ RunAsAdmin in U.DAT",
                                             "reg.driver a.sys SomeShim in SYSTEM"}));
}

// A key below others, each named once.
test_support::hive_key below(std::initializer_list<const char*> names, test_support::hive_key key)
{
    for (auto name = std::rbegin(names); name != std::rend(names); ++name) {
        key = {.name = *name, .subkeys = {std::move(key)}};
    }
    return key;
}

void read_hive(model::registry_lists& lists, const test_support::hive_key& root)
{
    hive::hive_bytes image;
    image.open(test_support::source_of(test_support::hive_builder().build(root)));
    model::read_registry_lists(lists, hive::hive_image(std::move(image)), {});
}

TEST(findings, about_the_registry_come_from_the_hives_of_machine_system_and_user)
{
    using namespace test_support;
    const std::initializer_list<const char*> to_flags = {"root", "Microsoft", "Windows NT",
                                                         "CurrentVersion"};
    const auto layers = [](const char* program) {
        return hive_key{.name = "Layers", .values = {text_value(program, "~ RunAsAdmin")}};
    };
    hive_key machine =
        below(to_flags,
              {.name = "AppCompatFlags",
               .subkeys = {{.name = "InstalledSDB",
                            .subkeys = {{.name = "{A}", .values = {dword_value("DatabaseType", 1)}},
                                        {.name = "{Empty}"}}},
                           {.name = "Custom",
                            .subkeys = {{.name = "Tool.exe",
                                         .values = {number_value("{A}.sdb", 77, 8)},
                                         .last_write = 99},
                                        {.name = "Bare.exe"}}},
                           layers("C:\\machine.exe")}});
    machine.subkeys.front().subkeys.push_back(
        below({"Windows", "CurrentVersion", "Uninstall"},
              {.name = "{A}.SDB", .values = {text_value("DisplayName", "A")}}));
    hive_key system = {.name = "root"};
    system.subkeys.push_back({.name = "Select", .values = {dword_value("Current", 1)}});
    system.subkeys.push_back(
        below({"ControlSet001", "Control", "Compatibility", "Driver"},
              {.name = "a.sys",
               .values = {text_value("Shims", std::string("S\0T", 3)), text_value("Other", "T")}}));
    const hive_key user =
        below({"root", "Software", "Microsoft", "Windows NT", "CurrentVersion", "AppCompatFlags"},
              layers("C:\\user.exe"));

    model::registry_lists lists;
    read_hive(lists, machine);
    read_hive(lists, system);
    read_hive(lists, user);
    EXPECT_TRUE(lists.has_installed_key && lists.has_uninstall_key && !lists.is_damaged);
    ASSERT_EQ(lists.customs.size(), 2u);
    EXPECT_EQ(lists.customs[1].program + lists.customs[1].id, "Bare.exe");
    EXPECT_EQ(lists.customs[0].program + lists.customs[0].id, "Tool.exe{a}");
    EXPECT_EQ(lists.customs[0].time, 77u);
    EXPECT_EQ(lists.customs[0].key_time, 99u);
    EXPECT_TRUE(lists.uninstalls.contains("{a}.sdb"));
    ASSERT_EQ(lists.layers.size(), 2u);
    EXPECT_EQ(lists.layers[0].program + lists.layers[0].layers, "C:\\machine.exe~ RunAsAdmin");
    EXPECT_EQ(lists.layers[1].program, "C:\\user.exe");
    EXPECT_EQ(lists.installed_keys, (std::set<std::string>{"{a}", "{empty}"}));
    const model::installed_table registered = {{"{a}", {"{a}", 0, 0, 0, "", ""}}};
    std::vector<std::string> empty_ones;
    for (const auto& one :
         model::judge_registry(known(), model::installed_databases(registered), lists, {})) {
        if (one.found.kind->id != "reg.layer" && one.found.variant == 2) {
            empty_ones.push_back(one.found.kind->id + ' ' + one.found.first.text);
        }
    }
    EXPECT_EQ(empty_ones, (std::vector<std::string>{"reg.half {empty}", "reg.new Bare.exe"}));
    ASSERT_EQ(lists.drivers.size(), 1u);
    EXPECT_EQ(lists.drivers[0].driver + " " + lists.drivers[0].shims, "a.sys S, T");
}

TEST(findings, about_a_registration_hold_the_database_against_the_registry)
{
    const std::uint64_t made = filetime(2024, 5, 5);
    const std::uint64_t day = std::uint64_t{86'400} * 10'000'000;
    struct {
        std::uint64_t installed;
        const char* description;
        std::vector<std::string> programs;
        id_set ids;
    } const rows[] = {
        {made + day, "Ours", {"a.exe"}, {}},
        {made - 1, "Ours", {"a.exe"}, {"time.after"}},
        {made + 366 * day, "Ours", {"a.exe"}, {}},
        {made + 367 * day, "Ours", {"a.exe"}, {"time.long"}},
        {made, "Theirs", {"a.exe"}, {"reg.description"}},
        {made, "Ours", {"a.exe", "b.exe"}, {"reg.exe"}},
        {made, "Ours", {}, {"reg.exe"}},
    };
    const loaded_database loaded(database_of("name = Ours"));
    const model::examined_database examined{loaded.database, known(), false, 0};
    model::registry_lists lists;
    lists.customs = {{"A.exe", "{a}", 0, 0}};
    for (const auto& row : rows) {
        model::database_identity identity = model::identity_of(loaded.database);
        identity.time = made;
        const model::installed_database facts{"{a}", 0, row.installed, 0, "", row.description};
        model::finding_list findings;
        model::judge_registration(findings, examined, identity, &facts, lists, row.programs);
        id_set ids;
        add_ids(ids, findings.all());
        EXPECT_EQ(ids, row.ids) << row.installed;
    }
    using seen = std::vector<model::seen_database>;
    EXPECT_EQ(model::judge_compilers(known(), seen{{"a", "2"}, {"b", "2"}, {"c", "3"}}).size(), 1u);
    EXPECT_EQ(model::judge_compilers(known(), seen{{"a", "2"}, {"b", "3"}}).size(), 0u);
}

TEST(findings, come_from_tables_that_can_be_added_to)
{
    model::knowledge tables;
    EXPECT_EQ(tables.fix("injectdll", "shim")->weighs, model::weight::high);
    EXPECT_EQ(tables.fix("InjectDlls", "shim"), nullptr);
    EXPECT_EQ(tables.add("name\tkind\tfamily\tweight\ttechnique\twords\n"
                         "InjectDll\tshim\tinject\tlow\t\tOurs.\r\n# words\n\n"
                         "list\tentry\tnote\nknown host\texample.org\t\n"),
              std::nullopt);
    EXPECT_EQ(tables.fix("injectdll", "shim")->words, "Ours.");
    EXPECT_TRUE(tables.holds(model::name_list::known_host, "Example.ORG"));
    EXPECT_EQ(tables.add("list\tentry\tnote\nknown host\n"), 2u);
    EXPECT_EQ(tables.add("known host\texample.org\t\n"), 1u);
    EXPECT_EQ(
        tables.add("name\tkind\tfamily\tweight\ttechnique\twords\nX\tshem\thide\tlow\t\tY.\n"), 2u);
    // What nothing raises cannot be found.
    const std::string head =
        "id\tgroup\tweight\ttechnique\tscope\tsays\tmeans\tproof\totherwise\tsource\n";
    EXPECT_EQ(tables.add(head + "target.mine\ttarget\tlow\t\tany\ta\tb\tc\td\te\n"), 2u);
    EXPECT_EQ(tables.add(head + "target.loose\ttarget\thigh\t\tany\ta\tb\tc\td\te\n"),
              std::nullopt);
    EXPECT_EQ(tables.of(model::signal::target_loose).weighs, model::weight::high);
}

TEST(findings, in_a_layer_that_is_too_much_for_its_users_are_told_by_itself)
{
    std::string padding;
    for (int i = 0; i < 2'000; ++i) {
        padding += "|  data|    name = d";
    }
    const std::string text = "layer @l|  name = L" + padding +
                             "|  shim_ref|    name = InjectDll|    command_line = a.dll"
                             "|exe|  name = a.exe|  layer|    name = L|    layer_tagid = @l";
    const loaded_database loaded(database_of(text));
    request::sdb_opts options = test_support::row_options("plain");
    options.explain = true;
    const std::string told = test_support::explained_report(loaded.database, options).text;
    for (const char* part :
         {"\nL (layer)", "inject.module", "a.exe  ", "which was not looked at"}) {
        EXPECT_NE(told.find(part), std::string::npos) << part;
    }
}

TEST(findings, of_ten_thousand_harmless_programs_are_not_high)
{
    namespace tag = sdb::tag;
    test_support::sdb_builder b;
    b.add(b.text(tag::name, "Programs of old"));
    b.add(b.text(tag::compiler_version, "2.1.0.3"));
    for (int i = 0; i < 10'000; ++i) {
        const std::string name = "program" + std::to_string(i) + ".exe";
        b.add(b.list(tag::exe,
                     {b.text(tag::name, name), b.text(tag::app_name, "Old Program"),
                      b.list(tag::matching_file,
                             {b.text(tag::name, "*"), i % 2 == 0 ? b.text(tag::company_name, "Old")
                                                                 : b.null(tag::general)}),
                      b.list(tag::shim_ref, {b.text(tag::name, "EmulateHeap")}),
                      b.list(tag::layer, {b.text(tag::name, "Win98")})}));
    }
    const loaded_database loaded(b.build());
    const model::examined_database examined{loaded.database, known(), false, 0};
    const model::examination all(examined);
    EXPECT_EQ(all.subjects().size(), 10'000u);
    EXPECT_EQ(all.with_high_finding(), 0u);
    for (const finding& one : all.of_database().all()) {
        EXPECT_NE(one.weighs, model::weight::high) << one.kind->id;
    }

    // Several threads tell what one does.
    for (const std::string_view form : {"plain", "csv", "json", "xml"}) {
        const auto told = [&](std::size_t threads) {
            request::sdb_opts options = test_support::row_options(form);
            options.explain = true;
            options.bounds.threads = threads;
            return test_support::explained_report(loaded.database, options).text;
        };
        const std::string alone = told(1);
        EXPECT_GT(alone.size(), 100'000u);
        EXPECT_TRUE(alone == told(4)) << form;
    }
}

} // namespace
