"""The requests that begin with "wuic:": what the management program asks on its own behalf."""

from urllib.parse import parse_qsl, quote
from xml.sax.saxutils import escape, quoteattr

UNKNOWN = "Unknown internal request"
AUTH_FAILED = "Authentication failed"


def _fields(query):
    return dict(parse_qsl(query, keep_blank_values=True, errors="surrogateescape"))


def _form(**fields):
    return "&".join("%s=%s" % (name, quote(str(value), safe="")) for name, value in fields.items())


def _auth(answers, request, query):
    fields = _fields(query)
    user = answers.users.get(fields.get("uid", ""))
    if user is None or user["password"] != fields.get("passwd"):
        return "", AUTH_FAILED
    reply = {"role": user["role"], "path": user.get("path", "/")}
    if "challenge" in user:
        state = user["challenge"]["state"]
        reply.update(statelen=len(state), state=state,
                     reply_message=user["challenge"]["reply_message"])
    return _form(**reply), ""


def _cert_auth(answers, request, query):
    name = _fields(query).get("user", "")
    if name not in answers.users:
        return "", AUTH_FAILED
    return _form(role=answers.users[name]["role"], path="/"), ""


def _audit(answers, request, query):
    return "", ""


def _record(name, user):
    return "<r><c>%s</c><c>%s</c></r>" % (escape(name), escape(user["role"]))


def _user_table(rows):
    return ('<re><t tn="Management Users" nc="2"><th><h>USER</h><h>ROLE</h></th>%s</t></re>\n'
            % "".join(rows))


def _user_record(answers, request, query):
    name = _fields("uid=" + query if "=" not in query else query).get("uid", "")
    if name not in answers.users:
        return "", "No such user"
    return _user_table([_record(name, answers.users[name])]), ""


def _user_records(answers, request, query):
    return _user_table(_record(name, user) for name, user in sorted(answers.users.items())), ""


def _add_user(answers, request, query):
    fields = _fields(query)
    if answers.role_of(request["user"]) not in ("root", "standard"):
        return "", "% This command is not permitted for your role."
    if not fields.get("uid") or not fields.get("role"):
        return "", "Invalid arguments"
    answers.users[fields["uid"]] = {"password": fields.get("passwd", ""), "role": fields["role"]}
    return "<re><SUCCESS></SUCCESS></re>\n", ""


def _telm(answers, request, query):
    fields = _fields(query)
    return "<re><data name=%s>%s</data></re>\n" % (
        quoteattr("telm"), escape(fields.get("srcIP", ""))), ""


def _accepted(answers, request, query):
    return "<re><status>0</status></re>\n", ""


# Those that are no mere text; the others are files in commands/, named with their prefix.
REQUESTS = {
    "auth": _auth,
    "cert-auth": _cert_auth,
    "rac-cert-user-query": _cert_auth,
    "audit": _audit,
    "adduser": _add_user,
    "get-user-record": _user_record,
    "get-all-user-records": _user_records,
    "check-img-version": _accepted,
    "check-img-verify": _accepted,
    "check-userdb-version": _accepted,
    "wzcmds": _accepted,
    "telm": _telm,
}


def run(answers, request):
    """(output, message) of a request whose command begins with "wuic:"."""
    command, _, query = request["command"].partition("?")
    handler = REQUESTS.get(command[len("wuic:"):])
    if handler:
        return handler(answers, request, query)
    output, message = answers.run({**request, "command": command, "rest": query},
                                  answers.role_of(request["user"]))
    return output, UNKNOWN if message == answers.INVALID else message
