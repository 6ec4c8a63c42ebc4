#!/bin/bash
# Inside the sandbox: becomes an HTTP server with the site as an operator would include it.
#
#   http_server.sh nginx|apache ADDRESS:PORT LIMITS FOLDER [DEPLOY]
#
# LIMITS is the file with what one client may have of the server, as the server's own format has it; FOLDER
# takes what the server writes; DEPLOY is another folder of configurations than deploy/. The certificate is below
# /run/wms/http.
set -euo pipefail
readonly address=$2 limits=$3 folder=$4 deploy=${5:-/checkout/deploy}
mkdir -p "$folder"
case $1 in
    nginx)
        mkdir -p /var/log/nginx
        sed -e "s|@ADDRESS@|$address|" -e "s|@LIMITS@|$limits|" -e "s|@FOLDER@|$folder|" \
            -e "s|@DEPLOY@|$deploy|" \
            /checkout/scripts/nginx.conf >"$folder/nginx.conf"
        exec /usr/sbin/nginx -e stderr -c "$folder/nginx.conf" -g "daemon off;"
        ;;
    apache)
        exec /usr/sbin/apache2 -f /checkout/scripts/httpd.conf -C "Define WMS_LISTEN $address" \
            -C "Define WMS_LIMITS $limits" -C "Define WMS_FOLDER $folder" \
            -C "Define WMS_DEPLOY $deploy" -D FOREGROUND
        ;;
esac
