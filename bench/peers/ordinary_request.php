<?php
// An ordinary request in a script; the connections stay open from one request to the next. The first is
// that of the sessions.
foreach (explode(' ', getenv('DATABASES')) as $name) {
    $databases[] = pg_pconnect("dbname=$name user=root");
}
$sid = $_SERVER['QORIN_AUTH_SESSION_ID'];
$command = urldecode(explode('&', $_SERVER['QUERY_STRING'], 2)[0]);
$rows = pg_query($databases[0],
    'SELECT ip, _user, role, extract(epoch FROM modified_time), extract(epoch FROM created_time), ' .
    'admin, path FROM http_session WHERE sid = ' . pg_escape_literal($databases[0], $sid));
[$ip, $user] = pg_fetch_row($rows);

$helper = stream_socket_client('unix:///tmp/cli-helper.sock');
fwrite($helper, pack('Na*Na*Na*Na*', strlen($user), $user, strlen($ip), $ip, strlen($sid), $sid,
    strlen($command), $command));
['length' => $length] = unpack('Nstatus/Nlength', stream_get_contents($helper, 8));
$output = stream_get_contents($helper, $length);
['length' => $length] = unpack('Nlength', stream_get_contents($helper, 4));
if ($length > 0) {
    stream_get_contents($helper, $length);
}
fclose($helper);

header('Content-Type: text/xml');
header('Expires: 0');
echo $output;
