#include "dispatch/dispatch_table.h"

#include <algorithm>
#include <array>
#include <functional>

#include "runtime/spool.h"

#include "backend/command_endpoints.h"
#include "backend/command_policy.h"
#include "backend/port_commands.h"
#include "backend/query_endpoints.h"

#include "auth/json_login.h"

#include "api/api_handlers.h"
#include "monitor/monitor_handlers.h"

namespace {

using enum token_rule;

constexpr auto rows = std::to_array<dispatch_row>({
    {.name = "/configapi/config", .mask = 0x1},
    {.name = "/dap/apcount", .mask = 0xFFFF, .before_session = true},
    {.name = "/dap/proc_end_point", .mask = 0xFFFF, .before_session = true},
    {.name = "/dap/proc_route", .mask = 0xFFFF, .before_session = true},
    {.name = "/dap/proc_tunnel", .mask = 0xFFFF, .before_session = true},
    {.name = "/dap/proc_vlan", .mask = 0xFFFF, .before_session = true},
    {.name = "/dap/register", .mask = 0xFFFF, .before_session = true},
    {.name = "/dap/un_register", .mask = 0xFFFF, .before_session = true},
    {.name = "/lse/v1/location", .mask = 0x87},
    {.name = "/rac/cacerts", .mask = 0x40},
    {.name = "/rac/config", .mask = 0x40},
    {.name = "/rac/download", .mask = 0x40},
    {.name = "/rac/login",
     .mask = 0xFFFF,
     .before_session = true,
     .from_other_sites = true,
     .own_path_only = login_page_refuse_path},
    {.name = "/rac/logout", .mask = 0xFFFF, .before_session = true},
    {.name = "/rac/version", .mask = 0x40},
    {.name = "/rac/welcome.html", .mask = 0x40, .from_other_sites = true},
    {.name = "/screens/auth/config_mgmt_csr_certificate.html", .mask = 0x1},
    {.name = "/screens/auth/config_mgmt_trustpoint_certificate.html", .mask = 0x1},
    {.name = "/screens/auth/execAddUser.html", .mask = 0x1, .token = always},
    {.name = "/screens/auth/getCPFilesList.xml", .mask = 0x1, .wrapped = true},
    {.name = "/screens/auth/getCPSections.xml", .mask = 0x1, .wrapped = true},
    {.name = "/screens/auth/guest-provisioning.html", .mask = 0x8},
    {.name = "/screens/auth/switchCPFrames.xml", .mask = 0x1, .wrapped = true},
    {.name = "/screens/auth/switchCPNonFrames.xml", .mask = 0x1, .wrapped = true},
    {.name = "/screens/auth/switch_diags_ssh.html", .mask = 0x7},
    {.name = "/screens/cmnutil/allUserRecords.xml", .mask = mask_user_records},
    {.name = "/screens/cmnutil/ap-tech-support.txt", .mask = 0x1},
    {.name = "/screens/cmnutil/cap_whitelist.csv", .mask = 0x9},
    {.name = "/screens/cmnutil/changeHostName.xml", .mask = 0x7},
    {.name = "/screens/cmnutil/clientinfo.xml", .mask = 0xFFFF},
    {.name = "/screens/cmnutil/copyImageflag.xml", .mask = 0x1},
    {.name = "/screens/cmnutil/discovered-aps.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/discovered-clients.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/events.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/execCommandPostReturnResult.xml",
     .mask = 0xFFFF,
     .handler = execCommandPostWithContext,
     .token = always},
    {.name = "/screens/cmnutil/execCommandReturnResult.xml",
     .mask = 0xFFFF,
     .handler = execCommandWithContext,
     .token = always,
     .in_setup = true},
    {.name = "/screens/cmnutil/execCommandsReturnResult.xml",
     .mask = 0xFFFF,
     .handler = execCommandsWithContext,
     .token = always},
    {.name = "/screens/cmnutil/execFPCliCommand.xml",
     .mask = 0xFFFF,
     .handler = execFPCliCommandWithContext,
     .token = always,
     .in_setup = true},
    {.name = "/screens/cmnutil/execMultipleCommands.xml",
     .mask = 0xFFFF,
     .handler = execMultipleCommandsFromWeb,
     .token = always},
    {.name = "/screens/cmnutil/execSimple.xml",
     .mask = 0xFFFF,
     .handler = executeSimpleCommand,
     .token = always},
    {.name = "/screens/cmnutil/execUiQuery.xml",
     .mask = mask_ui_query,
     .handler = execUiQuery,
     .token = always},
    {.name = "/screens/cmnutil/fw_agg_sess.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/fw_sess.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/gc_data.xml", .mask = 0xFFFF},
    {.name = "/screens/cmnutil/gc_sample.csv", .mask = 0x9},
    {.name = "/screens/cmnutil/getRolePolicy.xml",
     .mask = 0xFFFF,
     .handler = wuic_get_role_policy_raw,
     .in_setup = true},
    {.name = "/screens/cmnutil/importGuest.txt", .mask = 0x9},
    {.name = "/screens/cmnutil/loginfo.xml", .mask = 0x6, .wrapped = true},
    {.name = "/screens/cmnutil/plog-export.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/processLogs.xml", .mask = 0x6, .wrapped = true},
    {.name = "/screens/cmnutil/qorin_stats", .mask = 0x20},
    {.name = "/screens/cmnutil/racdownload", .mask = 0x6},
    {.name = "/screens/cmnutil/rap_whitelist.csv", .mask = 0x9},
    {.name = "/screens/cmnutil/rfmon_aps.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/rfmon_history.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/rfmon_radios.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/rfmon_stas.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/rfmon_wlans.csv", .mask = 0x3, .handler = plog_export_csv},
    {.name = "/screens/cmnutil/setup.html", .mask = 0xFFFF},
    {.name = "/screens/cmnutil/setupdata.xml", .mask = 0xFFFF, .in_setup = true},
    {.name = "/screens/cmnutil/showArp.xml", .mask = 0x1, .wrapped = true},
    {.name = "/screens/cmnutil/showBootWeb.xml", .mask = 0x2, .wrapped = true},
    {.name = "/screens/cmnutil/showSysTime.xml", .mask = 0x6, .wrapped = true},
    {.name = "/screens/cmnutil/showlsOutput.xml", .mask = 0x2, .wrapped = true},
    {.name = "/screens/cmnutil/tech-support.txt", .mask = 0x1},
    {.name = "/screens/cmnutil/telm", .mask = mask_telm, .handler = execDTLSTELMQuery},
    {.name = "/screens/cmnutil/upgradeImageflag.xml", .mask = 0x21},
    {.name = "/screens/cmnutil/userDebug.xml", .mask = 0x6, .wrapped = true},
    {.name = "/screens/cmnutil/userRecord.xml", .mask = mask_user_records},
    {.name = "/screens/cmnutil/verifyImageInProgress.xml", .mask = 0x6},
    {.name = "/screens/cmnutil/verifyImageStatus.xml", .mask = 0x6},
    {.name = "/screens/hybrid/hybrid_list.xml", .mask = 0x1, .wrapped = true},
    {.name = "/screens/wms/wms.cgi", .mask = 0xFFFF, .token = always},
    {.name = "/screens/wms/wms.login",
     .mask = 0xFFFF,
     .before_session = true,
     .from_other_sites = true,
     .own_path_only = login_page_refuse_path},
    {.name = "/screens/wms/wms.logout", .mask = 0xFFFF, .before_session = true},
    {.name = "/screens/wmsi/monitor.summary.html", .mask = 0x106, .from_other_sites = true},
    {.name = "/screens/wmsi/monitoring.html", .mask = 0xFFFF, .from_other_sites = true},
    {.name = "/sdn/v1/cut-thru", .mask = 0x81},
    {.name = "/sdn/v1/debugstats", .mask = 0x87},
    {.name = "/sdn/v1/dmz", .mask = 0x81},
    {.name = "/sdn/v1/flowdelete", .mask = 0x87},
    {.name = "/sdn/v1/flows", .mask = 0x87},
    {.name = "/sdn/v1/flowupdate", .mask = 0x87},
    {.name = "/sdn/v1/host", .mask = 0x87},
    {.name = "/sdn/v1/links", .mask = 0x87},
    {.name = "/sdn/v1/path", .mask = 0x87},
    {.name = "/sdn/v1/switch", .mask = 0x87},
    {.name = "/sdwan/sdwan-topology", .mask = 0x87},
    {.name = "/v1/api/login",
     .mask = 0xFFFF,
     .handler = api_login,
     .before_session = true,
     .own_path_only = api_login_refuse_path},
    {.name = "/v1/api/logout", .mask = 0xFFFF, .handler = api_logout, .before_session = true},
    {.name = "/v1/configuration", .mask = 0x87, .handler = exec_configuration, .token = always},
    {.name = "ap-tech-support", .mask = 0x6},
    {.name = "applyInitialSetupValues.html",
     .mask = 0xFFFF,
     .flag = 1,
     .token = always,
     .in_setup = true},
    {.name = "captiveportal_customize.html", .mask = 0x6, .flag = 1, .token = post_only},
    {.name = "captiveportal_import.html",
     .mask = 0x1,
     .flag = 1,
     .token = post_only,
     .spooled = true},
    {.name = "cli", .mask = 0xFFFF, .token = always},
    {.name = "config_mgmt_certificate.html", .mask = 0x1, .flag = 1, .token = post_only},
    {.name = "copyCrashTftpServerWeb.xml",
     .mask = 0x1,
     .flag = 1,
     .token = always,
     .wrapped = true},
    {.name = "copyFileFromTftpServerWeb.xml",
     .mask = 0x1,
     .flag = 1,
     .token = always,
     .wrapped = true},
    {.name = "copyFileLocalWeb.xml", .mask = 0x1, .flag = 1, .token = always, .wrapped = true},
    {.name = "copyLocalFileToTftpServerWeb.xml",
     .mask = 0x1,
     .flag = 1,
     .token = always,
     .wrapped = true},
    {.name = "copyLogFileLocalWeb.xml", .mask = 0x1, .flag = 1, .token = always, .wrapped = true},
    {.name = "copyLogLocalFileToTftpServerWeb.xml",
     .mask = 0x1,
     .flag = 1,
     .token = always,
     .wrapped = true},
    {.name = "copyLogTftpServerWeb.xml", .mask = 0x1, .flag = 1, .token = always, .wrapped = true},
    {.name = "copyStartupConfigToTftpServerWeb.xml",
     .mask = 0x1,
     .flag = 1,
     .token = always,
     .wrapped = true},
    {.name = "copyStartupToLocalWeb.xml", .mask = 0x1, .flag = 1, .token = always, .wrapped = true},
    {.name = "cr-load", .mask = 0x6, .handler = cr_load},
    {.name = "cr-save", .mask = 0x4, .handler = cr_save, .flag = 1},
    {.name = "crash.tar", .mask = 0x1, .flag = 1},
    {.name = "deleteCpFile.xml", .mask = 0x1, .flag = 1, .wrapped = true},
    {.name = "display_md5sum_text", .mask = 0x1, .flag = 1, .wrapped = true},
    {.name = "export-StaticBranchConfigGroup.csv", .mask = 0x1, .flag = 1},
    {.name = "gc_config.html", .mask = 0x1, .flag = 1, .token = post_only},
    {.name = "gc_config.xml", .mask = 0xB, .flag = 1},
    {.name = "gen_sample_pdf.xml", .mask = 0xFFFF, .flag = 1},
    {.name = "geninstrpdf.html", .mask = 0xFFFF, .flag = 1, .token = always, .in_setup = true},
    {.name = "get-permissions", .mask = 0xE, .handler = wlm_get_permissions},
    {.name = "getRunningConfig.xml",
     .mask = mask_running_config,
     .handler = getRunningConfigForApplication,
     .in_setup = true},
    {.name = "getSupInfo.xml", .mask = 0x6, .wrapped = true},
    {.name = "guestprovisioning_customize.html", .mask = 0x1, .flag = 1, .token = post_only},
    {.name = "heart-beat", .mask = 0xFFFF, .before_session = true},
    {.name = "hybrid_delete.xml", .mask = 0x1, .flag = 1, .wrapped = true},
    {.name = "hybrid_upload.html", .mask = 0x1, .flag = 1},
    {.name = "idp", .mask = 0xFFFF, .before_session = true, .from_other_sites = true},
    {.name = "importAnyFile.html", .mask = 0x1, .flag = 1},
    {.name = "importFile.html", .mask = 0x1, .flag = 1, .in_setup = true},
    {.name = "importPkgFile.xml", .mask = 0x1, .flag = 1},
    {.name = "importRemoteNode.csv", .mask = 0x1, .flag = 1},
    {.name = "log-download.tar", .mask = 0x1, .flag = 1},
    {.name = "login",
     .mask = 0xFFFF,
     .before_session = true,
     .from_other_sites = true,
     .own_path_only = login_page_refuse_path},
    {.name = "logout", .mask = 0xFFFF, .before_session = true},
    {.name = "lyncserver", .mask = 0xFFFF},
    {.name = "master_key.xml", .mask = 0xFFFF},
    {.name = "monitor-summary-data", .mask = 0x106, .handler = wuic_get_monitor_summary_data},
    {.name = "ncftp.html", .mask = 0x21, .flag = 1, .token = always},
    {.name = "ocsp", .mask = 0xFFFF, .before_session = true},
    {.name = "peerReset.xml", .mask = 0x1, .flag = 1},
    {.name = "pingUser.xml", .mask = 0xFFFF, .flag = 1, .wrapped = true, .in_setup = true},
    {.name = "pingV6User.xml", .mask = 0xF, .flag = 1, .wrapped = true},
    {.name = "plog-export", .mask = 0x6, .handler = plog_export_csv},
    {.name = "rac_custom_html", .mask = 0x1, .flag = 1},
    {.name = "rac_default.html", .mask = 0x1, .flag = 1},
    {.name = "rac_logo", .mask = 0xFFFF},
    {.name = "rac_upload.html", .mask = 0x1, .flag = 1, .token = always},
    {.name = "rac_version.xml", .mask = 0x1, .flag = 1},
    {.name = "redirect", .mask = 0xFFFF, .before_session = true, .from_other_sites = true},
    {.name = "removeFileWeb.xml", .mask = 0x1, .flag = 1, .wrapped = true},
    {.name = "renameFileWeb.xml", .mask = 0x1, .flag = 1, .wrapped = true},
    {.name = "resetToFactoryDefaultsWeb.xml", .mask = 0x1, .flag = 1, .wrapped = true},
    {.name = "restartProfMgr.xml", .mask = 0xFFFF, .flag = 1, .in_setup = true},
    {.name = "saveBocReboot.html", .mask = 0xFFFF, .flag = 1, .token = always, .in_setup = true},
    {.name = "saveReboot.html", .mask = 0xFFFF, .flag = 1, .token = always, .in_setup = true},
    {.name = "sdn", .mask = 0x87},
    {.name = "sdwan", .mask = 0x87},
    {.name = "sygate-upload", .mask = 0x1, .flag = 1},
    {.name = "sygate_upload.html", .mask = 0x1, .flag = 1},
    {.name = "tech-support", .mask = 0x6},
    {.name = "telm-pref", .mask = 0x7, .flag = 1, .token = always},
    {.name = "tracepath.xml", .mask = 0xF, .flag = 1, .wrapped = true},
    {.name = "tracerouteUser.xml", .mask = 0xFFFF, .flag = 1, .wrapped = true, .in_setup = true},
    {.name = "trustAnchor.cer", .mask = 0x1, .flag = 1},
    {.name = "updateCoords.xml", .mask = 0x1, .flag = 1, .wrapped = true},
    {.name = "upgradeImage.xml", .mask = 0x1, .flag = 1, .wrapped = true},
    {.name = "upgradeImageReboot.xml", .mask = 0x21, .flag = 1, .in_setup = true},
    {.name = "upgradeImageWebReadfile.xml", .mask = 0x21, .flag = 1, .wrapped = true},
    {.name = "uploadAction", .mask = 0x1, .flag = 1, .token = post_only},
    {.name = "userPref.xml", .mask = 0x6, .flag = 1},
    {.name = "verifyImages.xml", .mask = 0x1, .flag = 1},
    {.name = "wizard-cp.html", .mask = 0xFFFF, .flag = 1, .token = always, .in_setup = true},
    {.name = "wlm-search", .mask = 0x106, .handler = wlmng_search},
    {.name = "wms-os-upload.html", .mask = 0x21, .flag = 1, .token = always, .spooled = true},
    {.name = "ztp.log", .mask = 0xFFFF, .flag = 1, .in_setup = true},
});

static_assert(std::ranges::adjacent_find(rows, std::greater_equal{}, &dispatch_row::name) ==
                  rows.end(),
              "names must be strictly ascending");
static_assert(std::ranges::none_of(rows,
                                   [](const dispatch_row& row) {
                                       return row.token != never &&
                                              (row.before_session || row.from_other_sites);
                                   }),
              "without a session there is no token, and a page of another site does not know it");
static_assert(std::ranges::all_of(rows,
                                  [](const dispatch_row& row) {
                                      return row.spooled ==
                                             (std::ranges::find(spooled_pages, row.name) !=
                                              spooled_pages.end());
                                  }) &&
                  std::ranges::count(rows, true, &dispatch_row::spooled) ==
                      std::ranges::ssize(spooled_pages),
              "the upload pages are rows, and no others are spooled");
static_assert(std::ranges::none_of(rows,
                                   [](const dispatch_row& row) {
                                       return row.spooled && row.token != always &&
                                              row.token != post_only;
                                   }),
              "an upload needs the token");
// Under UndefinedBehaviorSanitizer GCC takes no function's address for a constant: it no longer
// knows that it is not null. The other builds check this.
#ifndef __SANITIZE_ADDRESS__
static_assert(std::ranges::none_of(rows,
                                   [](const dispatch_row& row) {
                                       return row.wrapped ? row.handler != nullptr
                                                          : row.target != nullptr;
                                   }),
              "a wrapped row is served by its target, another row by its handler");
#endif

constexpr std::string_view configuration_api = "/v1/configuration";

}  // namespace

std::span<const dispatch_row> dispatch_rows() {
    return rows;
}

const dispatch_row* dispatch_find_exact(std::string_view key) {
    const auto row = std::ranges::lower_bound(rows, key, {}, &dispatch_row::name);
    return row != rows.end() && row->name == key ? &*row : nullptr;
}

const dispatch_row* dispatch_find(std::string_view key) {
    if (const dispatch_row* row = dispatch_find_exact(key)) return row;
    if (key.find(configuration_api) != std::string_view::npos) {
        return dispatch_find_exact(configuration_api);
    }
    const std::size_t slash = key.rfind('/');
    return slash == std::string_view::npos ? nullptr : dispatch_find_exact(key.substr(slash + 1));
}

bool wuic_cgi_is_registered(const char* key) {
    const dispatch_row* row = key == nullptr ? nullptr : dispatch_find(key);
    return row != nullptr && row->flag == 0;
}
