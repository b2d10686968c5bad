// v3_session ADDRESS USER SECRET OID: one SNMPv3 session (SHA, no privacy) for its whole life. Each line of input makes
// it send a GET, and it answers with a line: the value, or "error: " and the reason. A manager behaves like this: it
// finds out the agent's engine id once and then counts the engine's boots and time on its own.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

namespace tavo {
namespace {

netsnmp_session *open_session(char *address, char *user, const char *secret) {
  netsnmp_session session;
  snmp_sess_init(&session);
  session.version = SNMP_VERSION_3;
  session.peername = address;
  session.timeout = 2'000'000;  // us
  session.retries = 0;
  session.securityName = user;
  session.securityNameLen = std::char_traits<char>::length(user);
  session.securityLevel = SNMP_SEC_LEVEL_AUTHNOPRIV;
  session.securityAuthProto = usmHMACSHA1AuthProtocol;
  session.securityAuthProtoLen = USM_AUTH_PROTO_SHA_LEN;
  session.securityAuthKeyLen = USM_AUTH_KU_LEN;
  if (generate_Ku(session.securityAuthProto, static_cast<u_int>(session.securityAuthProtoLen),
                  reinterpret_cast<const u_char *>(secret), std::char_traits<char>::length(secret),
                  session.securityAuthKey, &session.securityAuthKeyLen) != SNMPERR_SUCCESS) {
    return nullptr;
  }
  return snmp_open(&session);
}

std::string get(netsnmp_session *session, const char *object) {
  std::array<oid, MAX_OID_LEN> name{};
  std::size_t length = name.size();
  read_objid(object, name.data(), &length);
  netsnmp_pdu *request = snmp_pdu_create(SNMP_MSG_GET);
  snmp_add_null_var(request, name.data(), length);
  netsnmp_pdu *response = nullptr;
  std::string answer;
  if (const int status = snmp_synch_response(session, request, &response); status != STAT_SUCCESS) {
    answer =
        status == STAT_TIMEOUT ? "error: timeout" : std::string("error: ") + snmp_api_errstring(session->s_snmp_errno);
  } else if (response->command != SNMP_MSG_RESPONSE || response->variables->type != ASN_INTEGER) {
    answer = "error: a response of type " + std::to_string(response->command);
  } else {
    answer = std::to_string(*response->variables->val.integer);
  }
  if (response != nullptr) {
    snmp_free_pdu(response);
  }
  return answer;
}

int run(char **arguments) {
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
  init_snmp("v3_session");
  netsnmp_session *session = open_session(arguments[1], arguments[2], arguments[3]);
  if (session == nullptr) {
    snmp_perror("v3_session");
    return 1;
  }
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << get(session, arguments[4]) << std::endl;
  }
  snmp_close(session);
  return 0;
}

}  // namespace
}  // namespace tavo

int main(int argc, char **argv) {
  if (argc != 5) {
    std::fputs("usage: v3_session ADDRESS USER SECRET OID\n", stderr);
    return 2;
  }
  return tavo::run(argv);
}
