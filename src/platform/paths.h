// Every fixed path, socket name and port of the system stands here and nowhere else.
#pragma once

#include <cstdint>

namespace paths {

// Services of the controller.
inline constexpr char cli_helper_socket[] = "/tmp/cli-helper.sock";
inline constexpr char loopback_address[] = "127.0.0.1";
inline constexpr std::uint16_t fast_path_port = 8375;
inline constexpr std::uint16_t auth_service_port = 8227;
inline constexpr std::uint16_t ap_service_port = 8479;
inline constexpr std::uint16_t ocsp_service_port = 8465;

// Databases (libpq connection strings).
inline constexpr char db_wms[] = "dbname=wms user=root";
inline constexpr char db_gap[] = "dbname=gapdb user=root";
inline constexpr char db_cfgm[] = "dbname=cfgmdb user=root";
inline constexpr char db_user[] = "dbname=userdbv3 user=root";
inline constexpr char root_home[] = "/root";  // where the client library looks for a password file

// Flash and RAM disk.
inline constexpr char flash_root[] = "/flash";
inline constexpr char ramdisk_root[] = "/tmp";
inline constexpr char factory_default_marker[] = "/flash/config/factory-default";
inline constexpr char reboot_history[] = "/flash/config/reboot-history";
inline constexpr char spool_flash[] = "/flash/config/post.data";
inline constexpr char spool_ramdisk[] = "/tmp/post.data";
inline constexpr char os_image[] = "/flash/config/os_image";
inline constexpr char os_image_new[] = "/flash/config/os_image.new";  // on the same file system
inline constexpr char custom_reports[] = "/flash/upload/custom-reports.xml";
inline constexpr char integrity_check_result[] = "/tmp/integrity_check_result";
inline constexpr char tpm_cert_mark[] = "/tmp/tpmCertPresent";
inline constexpr char capture_template[] = "/tmp/%s-XXXXXX";  // of mkstemp(3), after formatting
inline constexpr char upload_folder[] = "/flash/upload";
inline constexpr char upload_turn[] = "/run/wms-upload.lock";  // a folder that only root writes to

// Switches and traces.
inline constexpr char http_log_level[] = "/tmp/http_log_level";
inline constexpr char debug_trace[] = "/tmp/ooo";
inline constexpr char monitor_debug_switch[] = "/flash/mon_debug";
inline constexpr char httpd_timing[] = "/tmp/httpd_timing";

// Lock files, by lock kind.
inline constexpr char lock_upgrade[] = "/tmp/upgrading";
inline constexpr char lock_upgrade_pkg[] = "/tmp/upgrading_pkg";
inline constexpr char lock_tar_flash[] = "/tmp/tar_flash";
inline constexpr char lock_tar_crash[] = "/tmp/tar_crash";
inline constexpr char lock_tar_logs[] = "/tmp/tar_logs";

// Programs and page templates.
inline constexpr char module_status[] = "/vantor/bin/moduleStatus";
inline constexpr char software_version[] = "/vantor/bin/softwareVersion";
inline constexpr char show_version[] = "/vantor/bin/showVersion";
inline constexpr char own_version_command[] = "/vantor/webui/wms/wms.cgi wuic softwareVersion";
inline constexpr char shell[] = "/bin/sh";
inline constexpr char template_folder[] = "/vantor/webui/sfmt/";

// Tables that are looked up.
inline constexpr char ap_models[] = "/vantor/share/ap_models.tsv";
inline constexpr char vendor_table[] = "/vantor/share/vendors.table";

// The kernel's services.
inline constexpr char random_uuid[] = "/proc/sys/kernel/random/uuid";
inline constexpr char memory_info[] = "/proc/meminfo";
inline constexpr char own_program[] = "/proc/self/exe";
inline constexpr char own_descriptor[] = "/proc/self/fd/%d";

}  // namespace paths
