// Handlers that nobody has written yet, a row each. Every one of them answers clearly: the generic
// error "not implemented", or for a body producer an `re` document with that error.
//
// To write one for real: delete its row here and declare it, with its own body, in the handlers'
// header of its folder. The dispatch table stays as it is.
#pragma once

#include "runtime/handler.h"

request_handler not_implemented;
wrapper_target not_implemented_xml;

// NOLINTBEGIN(readability-identifier-naming): names fixed by the dispatch table
inline constexpr request_handler& apply_initial_setup_values = not_implemented;
inline constexpr request_handler& bulk_guest_import = not_implemented;
inline constexpr request_handler& captive_portal_customise_page = not_implemented;
inline constexpr request_handler& captive_portal_wizard_page = not_implemented;
inline constexpr request_handler& cert_download_get_file = not_implemented;
inline constexpr request_handler& change_host_name = not_implemented;
inline constexpr request_handler& client_info = not_implemented;
inline constexpr request_handler& copyImageflag = not_implemented;
inline constexpr request_handler& customize_guest_provisioning_pages_html = not_implemented;
inline constexpr request_handler& dap_apcount = not_implemented;
inline constexpr request_handler& dap_proc_end_point = not_implemented;
inline constexpr request_handler& dap_proc_route = not_implemented;
inline constexpr request_handler& dap_proc_tunnel = not_implemented;
inline constexpr request_handler& dap_proc_vlan = not_implemented;
inline constexpr request_handler& dap_register = not_implemented;
inline constexpr request_handler& dap_un_register = not_implemented;
inline constexpr request_handler& download_import_cap_sample = not_implemented;
inline constexpr request_handler& download_import_rap_sample = not_implemented;
inline constexpr request_handler& download_import_sample = not_implemented;
inline constexpr request_handler& execCommandWithContextLync = not_implemented;
inline constexpr request_handler& execConfigApi = not_implemented;
inline constexpr request_handler& execIdp = not_implemented;
inline constexpr request_handler& execLSE = not_implemented;
inline constexpr request_handler& execSDN = not_implemented;
inline constexpr request_handler& execSDWAN = not_implemented;
inline constexpr request_handler& export_branch_config = not_implemented;
inline constexpr request_handler& gen_sample_pdf = not_implemented;
inline constexpr request_handler& geninstrpdf = not_implemented;
inline constexpr request_handler& getAllUserRecords = not_implemented;
inline constexpr request_handler& getUserRecord = not_implemented;
inline constexpr request_handler& guest_connect_config = not_implemented;
inline constexpr request_handler& heart_beat = not_implemented;
inline constexpr request_handler& import_any_file_page = not_implemented;
inline constexpr request_handler& import_custom_captive_portal_pages_html = not_implemented;
inline constexpr request_handler& import_file_page = not_implemented;
inline constexpr request_handler& import_hybrid_image_html = not_implemented;
inline constexpr request_handler& import_package = not_implemented;
inline constexpr request_handler& import_remote_node = not_implemented;
inline constexpr request_handler& log_download_get_file = not_implemented;
inline constexpr request_handler& login_page = not_implemented;
inline constexpr request_handler& logout_page = not_implemented;
inline constexpr request_handler& main_page = not_implemented;
inline constexpr request_handler& management_page = not_implemented;
inline constexpr request_handler& master_key_page = not_implemented;
inline constexpr request_handler& mgmtuser_add_html = not_implemented;
inline constexpr request_handler& ncftp_html = not_implemented;
inline constexpr request_handler& peer_reset = not_implemented;
inline constexpr request_handler& rac_cacerts = not_implemented;
inline constexpr request_handler& rac_config = not_implemented;
inline constexpr request_handler& rac_custom_html = not_implemented;
inline constexpr request_handler& rac_default_html = not_implemented;
inline constexpr request_handler& rac_download = not_implemented;
inline constexpr request_handler& rac_logo = not_implemented;
inline constexpr request_handler& rac_upload_html = not_implemented;
inline constexpr request_handler& rac_version = not_implemented;
inline constexpr request_handler& redirect_page = not_implemented;
inline constexpr request_handler& restart_profile_manager = not_implemented;
inline constexpr request_handler& save_boc_reboot = not_implemented;
inline constexpr request_handler& save_reboot = not_implemented;
inline constexpr request_handler& serve_diags_ssh_html = not_implemented;
inline constexpr request_handler& serve_guest_provisioning_pages_html = not_implemented;
inline constexpr request_handler& serve_mgmt_csr_certificate_pages_html = not_implemented;
inline constexpr request_handler& serve_mgmt_trustpoint_certificate_pages_html = not_implemented;
inline constexpr request_handler& serve_mgmt_upload_certificate_pages_html = not_implemented;
inline constexpr request_handler& setup_data = not_implemented;
inline constexpr request_handler& setup_html_page = not_implemented;
inline constexpr request_handler& statistics_page = not_implemented;
inline constexpr request_handler& tech_support_get_file = not_implemented;
inline constexpr request_handler& telm_user_preference = not_implemented;
inline constexpr request_handler& upgradeImageflag = not_implemented;
inline constexpr request_handler& upgradeImageReboot = not_implemented;
inline constexpr request_handler& upload_sygate_agent_html = not_implemented;
inline constexpr request_handler& user_preferences = not_implemented;
inline constexpr request_handler& webReadVerifyStatus = not_implemented;
inline constexpr request_handler& webVerifyImage = not_implemented;
inline constexpr request_handler& webVerifyInProgress = not_implemented;
inline constexpr request_handler& wm_cli = not_implemented;
inline constexpr request_handler& wms_os_upload_file = not_implemented;
inline constexpr request_handler& wuic_guest_connect_data_xml = not_implemented;
inline constexpr request_handler& wuic_ocsp_request = not_implemented;
inline constexpr request_handler& ztp_log_download = not_implemented;
inline constexpr wrapper_target& captivePortalDeleteCPFile = not_implemented_xml;
inline constexpr wrapper_target& captivePortalGetCPFileList = not_implemented_xml;
inline constexpr wrapper_target& captivePortalGetCPSections = not_implemented_xml;
inline constexpr wrapper_target& captivePortalSwitchToFrames = not_implemented_xml;
inline constexpr wrapper_target& captivePortalSwitchToNonFrames = not_implemented_xml;
inline constexpr wrapper_target& captivePortalUpdateCoords = not_implemented_xml;
inline constexpr wrapper_target& copyCrashTftpServerWeb = not_implemented_xml;
inline constexpr wrapper_target& copyFileFromTftpServerWeb = not_implemented_xml;
inline constexpr wrapper_target& copyFileLocalWeb = not_implemented_xml;
inline constexpr wrapper_target& copyLocalFileToTftpServerWeb = not_implemented_xml;
inline constexpr wrapper_target& copyLogFileLocalWeb = not_implemented_xml;
inline constexpr wrapper_target& copyLogLocalFileToTftpServerWeb = not_implemented_xml;
inline constexpr wrapper_target& copyLogTftpServerWeb = not_implemented_xml;
inline constexpr wrapper_target& copyStartupConfigToTftpServerWeb = not_implemented_xml;
inline constexpr wrapper_target& copyStartupToLocalWeb = not_implemented_xml;
inline constexpr wrapper_target& delHybridImgWeb = not_implemented_xml;
inline constexpr wrapper_target& display_md5sum_text = not_implemented_xml;
inline constexpr wrapper_target& getArpTable = not_implemented_xml;
inline constexpr wrapper_target& getProcessLogs = not_implemented_xml;
inline constexpr wrapper_target& getSupInfo = not_implemented_xml;
inline constexpr wrapper_target& getSyslogInfo = not_implemented_xml;
inline constexpr wrapper_target& getSystemTime = not_implemented_xml;
inline constexpr wrapper_target& getUserDebug = not_implemented_xml;
inline constexpr wrapper_target& listHybridImgWeb = not_implemented_xml;
inline constexpr wrapper_target& pingUser = not_implemented_xml;
inline constexpr wrapper_target& pingV6User = not_implemented_xml;
inline constexpr wrapper_target& removeFileWeb = not_implemented_xml;
inline constexpr wrapper_target& renameFileWeb = not_implemented_xml;
inline constexpr wrapper_target& resetToFactoryDefaultsWeb = not_implemented_xml;
inline constexpr wrapper_target& showBootWeb = not_implemented_xml;
inline constexpr wrapper_target& showlsOutput = not_implemented_xml;
inline constexpr wrapper_target& tracepath = not_implemented_xml;
inline constexpr wrapper_target& tracerouteUserAsync = not_implemented_xml;
inline constexpr wrapper_target& upgradeImageWeb = not_implemented_xml;
inline constexpr wrapper_target& upgradeImageWebReadFile =
    not_implemented_xml;  // NOLINTEND(readability-identifier-naming)
