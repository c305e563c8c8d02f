#include "support/sample_database.h"

#include "sdb/tags.h"

namespace test_support {
namespace {

namespace tag = sdb::tag;

constexpr std::string_view cover_vendor = "Tarnwick Office Systems";
constexpr std::string_view cover_product = "Tarnwick Font Preview Pack";
constexpr std::string_view companion_module = R"(C:\ProgramData\Tarnwick\fontcach.dll)";

// One byte to each side of the length at which the XML form breaks a text over three lines.
constexpr std::string_view text_of_79 =
    "Stock & Sales, the counter edition with price tags, second revision for 3 tills";
constexpr std::string_view text_of_80 =
    "Stock & Sales, the counter edition with price tags, second revision for 12 tills";
static_assert(text_of_79.size() == 79 && text_of_80.size() == 80);

constexpr std::uint16_t match_all = 1;
constexpr std::uint32_t platform_32_bits = 1;
constexpr std::uint32_t platform_64_bits = 2;
constexpr std::uint32_t value_is_string = 1;
constexpr std::uint32_t value_is_binary = 3;
constexpr std::uint32_t value_is_dword = 4;
constexpr std::uint32_t value_is_qword = 11;
constexpr std::uint32_t english = 0x409;

void add_facts(sdb_builder& b)
{
    b.add({
        b.qword(tag::time, filetime(2026, 3, 14, 9, 26, 53)),
        b.text(tag::compiler_version, "v2.1.0.3"),
        b.text(tag::name, cover_product),
        b.dword(tag::os_platform, platform_32_bits),
        b.guid(tag::database_id, "7a3c5e10-94d2-4b6f-8e21-c0d9f45b7a63"),
    });
}

// The branch that refuses a caller becomes an unconditional one, and a name in the service's data
// becomes another.
node service_patch(sdb_builder& b)
{
    const std::string module = "recordsvc.exe";
    const bytes old_name = utf16_bytes("records.log");
    const bytes new_name = utf16_bytes("fontmap.dat");
    return b.list(tag::patch,
                  {
                      b.text(tag::name, "RecordServiceHotfix"),
                      b.text(tag::description, "Corrects the record service's start order"),
                      b.guid(tag::fix_id, "0b64d0f2-5a1e-4f0c-b7c3-2f9e81d46a05"),
                      b.patch_bits({
                          match_op(module, 0x00012f40, {0x85, 0xc0, 0x74, 0x12, 0x8b, 0x45, 0x08}),
                          replace_op(module, 0x00012f42, {0xeb}),
                          match_op(module, 0x00041c08, old_name),
                          replace_op(module, 0x00041c08, new_name),
                      }),
                  });
}

node pin_version_shim(sdb_builder& b)
{
    return b.list(
        tag::shim,
        {
            b.text(tag::name, "PinOldVersion"),
            b.text(tag::description, "Answers a version query with the release before"),
            b.text(tag::dllfile, "fixgen.dll"),
            b.guid(tag::fix_id, "3d1f8a44-0c59-47e6-9b1d-75e2c6f0a418"),
            b.list(tag::inexclude, {b.null(tag::include), b.text(tag::module, "setupui.dll")}),
            b.list(tag::inexclude, {b.text(tag::module, "verhlp.dll")}),
        });
}

node companion_shim(sdb_builder& b)
{
    return b.list(tag::shim, {
                                 b.text(tag::name, "LoadCompanionModule"),
                                 b.text(tag::dllfile, "fixgen.dll"),
                                 b.text(tag::command_line, companion_module),
                                 b.guid(tag::fix_id, "c5b0e7d1-6638-4a0f-8d57-19f2ab3e6c70"),
                             });
}

node redirect_paths_shim(sdb_builder& b)
{
    return b.list(tag::shim, {
                                 b.text(tag::name, "RedirectOldPaths"),
                                 b.text(tag::description,
                                        "Leads writes beside the program to the user's folder"),
                                 b.text(tag::dllfile, "fixpath.dll"),
                                 b.guid(tag::fix_id, "81e92c3b-f40d-4de7-a6b5-0d3c7f12e958"),
                                 b.dword(tag::flags, 1),
                                 b.list(tag::inexclude, {b.text(tag::module, "oldfiles.dll")}),
                             });
}

node transform(sdb_builder& b)
{
    return b.list(tag::msi_transform, {
                                          b.text(tag::name, "DropOldDriver"),
                                          b.text(tag::msi_transform_file, "dropdrv.mst"),
                                          b.reference(tag::tagid, "transform_file"),
                                      });
}

// Its bytes are odd in number, so that the file holds one pad byte.
node transform_file(sdb_builder& b)
{
    return b.list(tag::file, {
                                 b.text(tag::name, "dropdrv.mst"),
                                 b.binary(tag::file_bits, {0x4d, 0x53, 0x54, 0x00, 0x01, 0x02, 0x03,
                                                           0x0a, 0x14, 0x1e, 0x28}),
                             });
}

node late_start_kshim(sdb_builder& b)
{
    return b.list(tag::kshim, {
                                  b.text(tag::name, "StartDriverLate"),
                                  b.text(tag::description,
                                         "Holds a filter driver back until volumes are there"),
                                  b.text(tag::module, "drvfix.sys"),
                                  b.guid(tag::fix_id, "60d1c9ab-2f37-4e85-bd04-9a75e3f81c26"),
                                  b.dword(tag::flags, 2),
                              });
}

void add_library(sdb_builder& b)
{
    b.add(b.list(
        tag::library,
        {
            b.list(tag::inexclude, {b.null(tag::include), b.text(tag::module, "shellext.dll")}),
            b.list(tag::inexclude, {b.text(tag::module, "*")}),
            b.label("pin_version", pin_version_shim(b)),
            b.label("companion", companion_shim(b)),
            b.label("redirect_paths", redirect_paths_shim(b)),
            b.label("late_start", late_start_kshim(b)),
            b.label("patch", service_patch(b)),
            b.label("transform_file", transform_file(b)),
            b.label("transform", transform(b)),
            b.label("keep_heap",
                    b.list(tag::flag,
                           {
                               b.text(tag::name, "KeepOldHeap"),
                               b.guid(tag::fix_id, "5f7d20a9-1be4-4c38-93f6-e84a0b95d217"),
                               b.qword(tag::flag_mask_kernel, 0x0000000000000400),
                           })),
            b.label("run_as_caller",
                    b.list(tag::flag,
                           {
                               b.text(tag::name, "RunAsCaller"),
                               b.guid(tag::fix_id, "e29b6c07-d815-4f7a-8042-6a1d53cf90be"),
                               b.qword(tag::flag_mask_user, 0x0000000100000020),
                               b.qword(tag::flag_lua, 0x0000000000000002),
                           })),
        }));
}

node shim_ref(sdb_builder& b, std::string_view name, std::string_view label)
{
    return b.list(tag::shim_ref, {b.text(tag::name, name), b.reference(tag::shim_tagid, label)});
}

node flag_ref(sdb_builder& b, std::string_view name, std::string_view label)
{
    return b.list(tag::flag_ref, {b.text(tag::name, name), b.reference(tag::flag_tagid, label)});
}

void add_layers(sdb_builder& b)
{
    const bytes sixteen_bytes = guid_bytes("00112233-4455-6677-8899-aabbccddeeff");
    b.add(b.label(
        "layer",
        b.list(tag::layer, {
                               b.text(tag::name, "OlderRelease"),
                               b.text(tag::layer_displayname, "Behave like the release before"),
                               shim_ref(b, "PinOldVersion", "pin_version"),
                               shim_ref(b, "RedirectOldPaths", "redirect_paths"),
                               flag_ref(b, "KeepOldHeap", "keep_heap"),
                               b.list(tag::data, {b.text(tag::name, "ReportedRelease"),
                                                  b.dword(tag::data_valuetype, value_is_string),
                                                  b.text(tag::data_string, "5.1, second pack")}),
                               b.list(tag::data, {b.text(tag::name, "ReportedBuild"),
                                                  b.dword(tag::data_valuetype, value_is_dword),
                                                  b.dword(tag::data_dword, 2600)}),
                               b.list(tag::data, {b.text(tag::name, "ReportedSuite"),
                                                  b.dword(tag::data_valuetype, value_is_binary),
                                                  b.binary(tag::data_bits, sixteen_bytes)}),
                           })));
    b.add(b.list(tag::layer,
                 {b.text(tag::name, "PlainDesktop"), flag_ref(b, "RunAsCaller", "run_as_caller")}));
}

node service_exe(sdb_builder& b)
{
    return b.list(tag::exe,
                  {
                      b.text(tag::name, "recordsvc.exe"),
                      b.text(tag::app_name, cover_product),
                      b.text(tag::vendor, cover_vendor),
                      b.guid(tag::exe_id, "d41c7b92-3e5f-48a0-b6d8-07f3c95a1e24"),
                      b.guid(tag::app_id, "4ce08f15-a2b7-4d63-9105-8be6f7d2c03a"),
                      b.word(tag::match_mode, match_all),
                      b.dword(tag::os_platform, platform_32_bits),
                      b.list(tag::matching_file,
                             {
                                 b.text(tag::name, "*"),
                                 b.dword(tag::size, 417'792),
                                 b.dword(tag::checksum, 0x5b1e90c4),
                                 b.dword(tag::pe_checksum, 0x00067d11),
                                 b.qword(tag::bin_file_version, version_quad(6, 2, 1180, 4)),
                                 b.qword(tag::bin_product_version, version_quad(6, 2, 1180, 0)),
                                 b.text(tag::company_name, "Quellmark Records"),
                                 b.text(tag::product_name, "Quellmark Record Server"),
                                 b.text(tag::file_description, "Record service"),
                                 b.text(tag::file_version, "6.2.1180.4"),
                                 b.text(tag::original_filename, "recordsvc.exe"),
                                 b.text(tag::internal_name, "recordsvc"),
                                 b.text(tag::legal_copyright, "Copyright Quellmark Records"),
                                 b.dword(tag::link_date, unix_time(2019, 11, 5, 16, 20, 0)),
                                 b.dword(tag::linker_version, 0x000e0017),
                                 b.dword(tag::ver_language, english),
                             }),
                      b.list(tag::matching_file,
                             {b.text(tag::name, "recordidx.dll"), b.dword(tag::size, 61'440)}),
                      b.list(tag::patch_ref, {b.text(tag::name, "RecordServiceHotfix"),
                                              b.reference(tag::patch_tagid, "patch")}),
                  });
}

node ledger_exe(sdb_builder& b)
{
    return b.list(tag::exe,
                  {
                      b.text(tag::name, "ledger.exe"),
                      b.text(tag::app_name, cover_product),
                      b.text(tag::vendor, cover_vendor),
                      b.guid(tag::exe_id, "96f0a3de-7c21-4e85-8b4a-d5012f9c6b78"),
                      b.dword(tag::os_platform, platform_64_bits),
                      b.list(tag::matching_file,
                             {
                                 b.text(tag::name, "*"),
                                 b.text(tag::company_name, "Quellmark Records"),
                                 b.text(tag::product_name, "Quellmark Ledger"),
                                 b.text(tag::file_description, "The \"Blue\" Ledger"),
                             }),
                      b.list(tag::shim_ref,
                             {
                                 b.text(tag::name, "LoadCompanionModule"),
                                 b.reference(tag::shim_tagid, "companion"),
                                 b.text(tag::command_line, companion_module),
                                 b.list(tag::inexclude,
                                        {b.null(tag::include), b.text(tag::module, "ledger.exe")}),
                             }),
                  });
}

node plan_exe(sdb_builder& b)
{
    return b.list(
        tag::exe,
        {
            b.text(tag::name, "drawplan.exe"),
            b.text(tag::app_name, "Hollin DrawPlan 4"),
            b.text(tag::vendor, "Hollin Draughting"),
            b.guid(tag::exe_id, "2a85d3f7-b096-4c1e-9f68-431e7bd0ca52"),
            b.null(tag::monitoring_off),
            b.list(tag::matching_file,
                   {
                       b.text(tag::name, "*"),
                       b.qword(tag::from_bin_file_version, version_quad(4, 0, 0, 0)),
                       b.qword(tag::upto_bin_file_version, version_quad(4, 7, 65535, 65535)),
                       b.qword(tag::upto_bin_product_version, version_quad(4, 7, 310, 2)),
                       b.dword(tag::link_date, unix_time(2007, 2, 28, 7, 0, 1)),
                       b.dword(tag::upto_link_date, unix_time(2009, 12, 31, 23, 59, 59)),
                       b.qword(tag::modtime, filetime(2009, 12, 1)),
                       b.dword(tag::module_type, 3),
                       b.dword(tag::verfileos, 0x00040004),
                       b.dword(tag::verfiletype, 1),
                   }),
            b.list(tag::matching_file,
                   {
                       b.null(tag::match_logic_not),
                       b.text(tag::name, R"(plugins\newdraw.dll)"),
                       b.text(tag::product_version, "5.0"),
                   }),
            b.list(tag::layer,
                   {b.text(tag::name, "OlderRelease"), b.reference(tag::layer_tagid, "layer")}),
            flag_ref(b, "RunAsCaller", "run_as_caller"),
            b.list(tag::apphelp, {b.dword(tag::flags, 1), b.dword(tag::problemseverity, 3),
                                  b.dword(tag::htmlhelpid, 1041)}),
        });
}

node cyrillic_exe(sdb_builder& b)
{
    return b.list(tag::exe, {
                                b.text(tag::name, "Чертёж.exe"),
                                b.text(tag::app_name, "Вымышленный чертёж"),
                                b.text(tag::vendor, "Вымышленные приборы"),
                                b.guid(tag::exe_id, "b7d94e61-58ac-4f03-a2e7-f61c0d8b3594"),
                                b.list(tag::matching_file,
                                       {b.text(tag::name, "計測器.dll"),
                                        b.text(tag::company_name, "架空計器株式会社"),
                                        b.text(tag::product_name, "Threadwork 🧵 Gauge")}),
                                shim_ref(b, "RedirectOldPaths", "redirect_paths"),
                            });
}

node markup_exe(sdb_builder& b)
{
    return b.list(tag::exe,
                  {
                      b.text(tag::name, "stock.exe"),
                      b.text(tag::wildcard_name, "stock*.exe"),
                      b.text(tag::app_name, "Stock & Sales <Counter> \"Express\""),
                      b.text(tag::vendor, "Brindle & Daughters"),
                      b.guid(tag::exe_id, "f3820b5c-e9d4-4176-85ca-9d7e60fb1483"),
                      b.list(tag::matching_file,
                             {
                                 b.text(tag::name, "*"),
                                 b.text(tag::product_name, text_of_79),
                                 b.text(tag::file_description, text_of_80),
                                 b.text(tag::legal_copyright, "\"Brindle\" > all rights kept"),
                             }),
                      shim_ref(b, "PinOldVersion", "pin_version"),
                      flag_ref(b, "KeepOldHeap", "keep_heap"),
                  });
}

// A tool that is told from its namesakes by what its registry key and its settings file hold.
node plot_exe(sdb_builder& b)
{
    const std::string_view setting = "[plot]\nspooler=old\n";
    const bytes setting_bytes(setting.begin(), setting.end());
    return b.list(
        tag::exe,
        {
            b.text(tag::name, "plotspool.exe"),
            b.text(tag::app_name, "Hollin PlotSpool"),
            b.text(tag::vendor, "Hollin Draughting"),
            b.guid(tag::exe_id, "0e57c1d8-93fa-4b26-8c40-d6b2f19a7e35"),
            b.dword(tag::runtime_platform, 4),
            b.list(tag::matching_file,
                   {
                       b.text(tag::name, R"(spool\plotspool.exe)"),
                       b.dword(tag::size, 1'204'224),
                       b.dword(tag::checksum, 0x90f2c7b8),
                       b.qword(tag::bin_product_version, version_quad(2, 11, 0, 7)),
                       b.dword(tag::crc_checksum, 0x1f83d9ab),
                       b.dword(tag::size_of_image, 0x00130000),
                       b.text(tag::export_name, "plotspl.dll"),
                   }),
            b.list(tag::matching_reg, {b.text(tag::name, R"(HKLM\Software\Hollin\PlotSpool)"),
                                       b.text(tag::reg_value_name, "Generation"),
                                       b.dword(tag::reg_value_type, value_is_dword),
                                       b.dword(tag::reg_value_data_dword, 2)}),
            b.list(tag::matching_text,
                   {b.text(tag::name, R"(spool\plot.ini)"), b.dword(tag::text_encoding, 1),
                    b.binary(tag::text, setting_bytes)}),
            b.list(tag::shim_ref,
                   {b.text(tag::name, "RedirectOldPaths"),
                    b.reference(tag::shim_tagid, "redirect_paths"),
                    b.text(tag::command_line, R"(%ProgramFiles%\Hollin;%AppData%)")}),
            b.list(tag::data, {b.text(tag::name, "SpoolerGeneration"),
                               b.dword(tag::data_valuetype, value_is_qword),
                               b.qword(tag::data_qword, 0x0000000200000007)}),
        });
}

node viewer_exe(sdb_builder& b)
{
    return b.list(
        tag::exe,
        {
            b.text(tag::name, "planview.exe"),
            b.text(tag::app_name, "Hollin PlanView"),
            b.text(tag::vendor, "Hollin Draughting"),
            b.guid(tag::exe_id, "cc4a7e90-16d3-4fb8-a75d-28e0b3f5961d"),
            b.null(tag::trace_pca),
            b.list(tag::matching_file,
                   {
                       b.text(tag::name, "*"),
                       b.text(tag::company_name, "Hollin Draughting"),
                       b.text(tag::product_name, "PlanView"),
                       b.qword(tag::upto_bin_file_version, version_quad(1, 9, 65535, 65535)),
                       b.dword(tag::prevosmajorver, 5),
                       b.dword(tag::prevosminorver, 1),
                   }),
            shim_ref(b, "PinOldVersion", "pin_version"),
            b.list(tag::apphelp, {b.dword(tag::flags, 1), b.dword(tag::problemseverity, 1),
                                  b.dword(tag::htmlhelpid, 1042)}),
        });
}

// The kernel's part: a filter driver of the same vendor.
node plot_driver(sdb_builder& b)
{
    return b.list(tag::kdriver,
                  {
                      b.text(tag::name, "plotflt.sys"),
                      b.text(tag::vendor, "Hollin Draughting"),
                      b.guid(tag::exe_id, "374bf2e6-d81c-49a5-96e0-5ca7d04b18f3"),
                      b.dword(tag::flags, 1),
                      b.qword(tag::upto_bin_product_version, version_quad(3, 2, 9, 0)),
                      b.list(tag::kshim_ref,
                             {b.text(tag::name, "StartDriverLate"),
                              b.reference(tag::shim_tagid, "late_start"),
                              b.list(tag::kdata, {b.text(tag::name, "DelaySeconds"),
                                                  b.dword(tag::data_valuetype, value_is_dword),
                                                  b.dword(tag::data_dword, 30)})}),
                  });
}

void add_executables(sdb_builder& b)
{
    b.add(b.list(tag::app, {
                               b.text(tag::name, "Hollin DrawPlan 4"),
                               b.text(tag::vendor, "Hollin Draughting"),
                               b.guid(tag::app_id, "6b19f7c4-20de-4a85-b3f9-5c8e14d760a2"),
                               b.dword(tag::os_platform, platform_64_bits),
                           }));
    b.add(b.label("service_exe", service_exe(b)));
    b.add(b.label("ledger_exe", ledger_exe(b)));
    b.add(b.label("plan_exe", plan_exe(b)));
    b.add(b.label("cyrillic_exe", cyrillic_exe(b)));
    b.add(b.label("markup_exe", markup_exe(b)));
    b.add(b.label("plot_exe", plot_exe(b)));
    b.add(b.label("viewer_exe", viewer_exe(b)));
    b.add(b.label("plot_driver", plot_driver(b)));
}

void add_packages(sdb_builder& b)
{
    const std::string_view package_id = "a05e3d98-7b64-4c2f-91d0-e8f2647c5b1d";
    b.add(
        b.label("package", b.list(tag::msi_package,
                                  {
                                      b.text(tag::name, "drawplan.msi"),
                                      b.text(tag::app_name, "Hollin DrawPlan 4"),
                                      b.text(tag::vendor, "Hollin Draughting"),
                                      b.guid(tag::msi_package_id, package_id),
                                      b.guid(tag::exe_id, "18c6e2b0-4f95-47da-8e03-b2d7a96f5c41"),
                                      b.list(tag::msi_transform_ref,
                                             {b.text(tag::name, "DropOldDriver"),
                                              b.reference(tag::msi_transform_tagid, "transform")}),
                                  })));
    b.add(b.list(tag::lookup, {
                                  b.text(tag::name, "drawplan.msi"),
                                  b.text(tag::app_name, "Hollin DrawPlan 4"),
                                  b.text(tag::vendor, "Hollin Draughting"),
                                  b.dword(tag::os_platform, platform_64_bits),
                                  b.guid(tag::msi_package_id, package_id),
                              }));
}

void add_messages(sdb_builder& b)
{
    b.add(b.list(
        tag::apphelp,
        {
            b.dword(tag::htmlhelpid, 1041),
            b.dword(tag::problemseverity, 3),
            b.dword(tag::langid, english),
            b.dword(tag::flags, 0),
            b.text(tag::apphelp_title, "DrawPlan 4 cannot print on this system"),
            b.text(tag::apphelp_details, "Install the print pack, or export the plan as <svg>."),
            b.text(tag::apphelp_contact, "Hollin Draughting, customer desk"),
            b.list(tag::link, {b.text(tag::link_text, "Print pack"),
                               b.text(tag::link_url, "https://hollin.example/print?v=4&sp=1")}),
        }));
    b.add(b.list(tag::apphelp,
                 {
                     b.dword(tag::htmlhelpid, 1042),
                     b.dword(tag::problemseverity, 1),
                     b.dword(tag::langid, english),
                     b.text(tag::apphelp_title, "PlanView shows thin lines too bold"),
                     b.text(tag::apphelp_details, "The fix is in place; nothing is to be done."),
                     b.list(tag::link, {b.text(tag::link_text, "About this fix"),
                                        b.text(tag::link_url, "https://hollin.example/view")}),
                 }));
}

void add_indexes(sdb_builder& b)
{
    constexpr std::uint32_t unique_keys_not_promised = 0;
    b.index(tag::exe, tag::name, unique_keys_not_promised,
            {
                {index_key("drawplan.exe"), "plan_exe"},
                {index_key("ledger.exe"), "ledger_exe"},
                {index_key("planview.exe"), "viewer_exe"},
                {index_key("plotspool.exe"), "plot_exe"},
                {index_key("recordsvc.exe"), "service_exe"},
                {index_key("stock.exe"), "markup_exe"},
            });
    b.index(tag::msi_package, tag::msi_package_id, unique_keys_not_promised,
            {{0x4c2f7b64a05e3d98, "package"}});
}

} // namespace

sdb_builder sample_database_builder()
{
    sdb_builder b;
    b.version(2, 3);
    add_facts(b);
    add_library(b);
    add_layers(b);
    add_executables(b);
    add_packages(b);
    add_messages(b);
    add_indexes(b);
    return b;
}

bytes sample_database()
{
    return sample_database_builder().build();
}

} // namespace test_support
