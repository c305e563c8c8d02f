#include "form/html_page.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "form/html_text.h"
#include "form/value_text.h"
#include "platform/digests.h"
#include "uni/byte_view.h"

namespace form {

namespace {

constexpr std::string_view style_text =
#include "form/html_style.inc"
    ;
constexpr std::string_view script_text =
#include "form/html_script.inc"
    ;

// They stand in XML as they are.
static_assert(style_text.find_first_of("<&") == style_text.npos);
static_assert(script_text.find_first_of("<&") == script_text.npos);

std::string base64(std::span<const std::uint8_t> bytes)
{
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            bits = bits << 8 | (at + i < bytes.size() ? bytes[at + i] : 0u);
        }
        for (unsigned i = 0; i < 4; ++i) {
            text += at + i > bytes.size() ? '=' : digits[bits >> (18 - 6 * i) & 63];
        }
    }
    return text;
}

// What the policy knows a text by.
std::string source_of(std::string_view text)
{
    const std::vector<std::uint8_t> digest =
        platform::compute_digest(platform::digest_kind::sha256, uni::bytes_of(text));
    return digest.empty() ? "'none'" : "'sha256-" + base64(digest) + "'";
}

void write_policy(uni::text_buffer& out)
{
    out.literal(
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src ");
    out.text(source_of(style_text));
    out.literal("; script-src ");
    out.text(source_of(script_text));
    out.literal("; base-uri 'none'; form-action 'none'\"/>\n");
}

std::string command_line(const run_facts& run)
{
    std::string line = run.command;
    for (const std::string& argument : run.arguments) {
        const bool is_quoted = argument.empty() || argument.find(' ') != std::string::npos;
        line += is_quoted ? " '" + argument + "'" : " " + argument;
    }
    return line;
}

void write_fact(uni::text_buffer& out, std::string_view name, std::string_view text)
{
    out.literal("<dt>");
    out.text(name);
    out.literal("</dt><dd>");
    write_html_text(out, text);
    out.literal("</dd>\n");
}

} // namespace

void write_html_head(uni::text_buffer& out, const run_facts& run, const request::cmd_params& style)
{
    const std::string time = moment_text({run.time}, style).joined() + " UTC";
    out.literal("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n");
    write_policy(out);
    out.literal(
        "<meta name=\"referrer\" content=\"no-referrer\"/>\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n<title>");
    write_html_text(out, run.program + " " + time);
    out.literal("</title>\n<style>");
    out.text(style_text);
    out.literal("</style>\n</head>\n<body>\n<header>\n<h1>");
    write_html_text(out, run.program);
    out.literal(" report</h1>\n<dl>\n");
    write_fact(out, "version", run.program + " " + run.version);
    write_fact(out, "command line", command_line(run));
    write_fact(out, "time", time);
    write_fact(out, "host", run.host + "; " + run.system);
    out.literal("</dl>\n<p class=\"bad\" id=\"end\">Where no table of what was examined follows, "
                "this page has no end: "
                "the run was cut off, or the page is still loading.</p>\n</header>\n"
                "<form id=\"find\" hidden=\"\" role=\"search\">\n"
                "<label>Search <input id=\"words\" type=\"search\" autocomplete=\"off\"/></label>\n"
                "<label>Program <input id=\"program\" type=\"search\" list=\"programs\" "
                "autocomplete=\"off\"/></label>\n"
                "<label>Fix <input id=\"fix\" type=\"search\" list=\"fixes\" "
                "autocomplete=\"off\"/></label>\n"
                "<label>Tag <select id=\"tag\"><option value=\"\">any</option></select></label>\n"
                "<output id=\"shown\" aria-live=\"polite\"></output>\n"
                "<datalist id=\"programs\"></datalist><datalist id=\"fixes\"></datalist>\n"
                "</form>\n<main>\n");
}

void write_html_script(uni::text_buffer& out)
{
    out.literal("</section>\n<script>");
    out.text(script_text);
    out.literal("</script>\n");
}

} // namespace form
