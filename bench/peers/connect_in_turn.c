/* The plainest program that does a request's database work: four connections one after the other,
 * the session query, and out. The yardstick for the start-up of wms.cgi. */
#include <stdio.h>
#include <stdlib.h>

#include <libpq-fe.h>

static const char *const databases[] = {
    "dbname=wms user=root",
    "dbname=gapdb user=root",
    "dbname=cfgmdb user=root",
    "dbname=userdbv3 user=root",
};

int main(void) {
    PGconn *connections[4];
    for (int i = 0; i < 4; ++i) {
        connections[i] = PQconnectdb(databases[i]);
        if (PQstatus(connections[i]) != CONNECTION_OK) {
            fprintf(stderr, "%s", PQerrorMessage(connections[i]));
            return 1;
        }
    }
    PGresult *row = PQexec(connections[0],
                           "SELECT ip, _user, role, extract(epoch FROM modified_time), "
                           "extract(epoch FROM created_time), admin, path FROM http_session "
                           "WHERE sid = 'none'");
    if (PQresultStatus(row) != PGRES_TUPLES_OK) return 1;
    printf("Content-Type: text/plain\r\n\r\n%d rows\n", PQntuples(row));
    PQclear(row);
    for (int i = 0; i < 4; ++i) PQfinish(connections[i]);
    return 0;
}
