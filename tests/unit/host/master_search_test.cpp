#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace tavo {
namespace {

// No installed header declares it.
extern "C" snmp_alarm *sa_find_specific(unsigned int alarm);

class MasterSearchTest : public testing::Test {
 protected:
  // Roles of an agent.
  static constexpr int stand_alone = 0;
  static constexpr int subagent = 1;

  ~MasterSearchTest() override {
    snmp_alarm_unregister_all();
    be(stand_alone);
  }

  static void be(int role) { netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, role); }

  // Whether net-snmp calls what is registered for a repeating alarm, and not the daemon instead.
  static bool keeps(SNMPAlarmCallback *callback, void *argument = nullptr) {
    const unsigned int alarm = snmp_alarm_register(60, SA_REPEAT, callback, argument);
    return sa_find_specific(alarm)->thecallback == callback;
  }

  // A function of the library that has the search, which exports no name for the search itself.
  static SNMPAlarmCallback *of_agent_library() {
    return reinterpret_cast<SNMPAlarmCallback *>(dlsym(RTLD_NEXT, "agentx_check_session"));
  }

  static void of_this_program(unsigned int /*alarm*/, void * /*argument*/) {}
};

TEST_F(MasterSearchTest, ASubagentsSearchIsReplaced) {
  be(subagent);
  EXPECT_FALSE(keeps(of_agent_library()));
}

TEST_F(MasterSearchTest, AnAlarmWithAnArgumentIsNoSearch) {
  be(subagent);
  int argument = 0;
  EXPECT_TRUE(keeps(of_agent_library(), &argument));
}

TEST_F(MasterSearchTest, AnAlarmOfAnotherLibraryIsNoSearch) {
  be(subagent);
  EXPECT_TRUE(keeps(of_this_program));
}

TEST_F(MasterSearchTest, AnAgentOfItsOwnDoesNotSearch) {
  be(stand_alone);
  EXPECT_TRUE(keeps(of_agent_library()));
}

}  // namespace
}  // namespace tavo
