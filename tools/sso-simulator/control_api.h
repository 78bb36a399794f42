// The simulator's control interface, shared by the daemon and the ctl CLI.
// It lives on the service's own bus name, so whoever can reach the service
// can script it.
#pragma once

namespace ssosim {

inline constexpr const char *kControlPath = "/org/orvex/tv/ssoservice/simulator";
inline constexpr const char *kControlInterface = "org.orvex.tv.ssoservice.simulator.Control";

inline constexpr const char *kControlXml = R"xml(<node>
  <interface name="org.orvex.tv.ssoservice.simulator.Control">
    <method name="Configure">
      <arg name="method" type="s" direction="in"/>
      <arg name="behaviour" type="a{sv}" direction="in"/>
    </method>
    <method name="ResetMethod">
      <arg name="method" type="s" direction="in"/>
    </method>
    <method name="Reset"/>
    <method name="GetJournal">
      <arg name="entries" type="a(sss)" direction="out"/>
    </method>
    <method name="ClearJournal"/>
    <method name="GetDeliveries">
      <arg name="deliveries" type="a(sss)" direction="out"/>
    </method>
    <method name="ClearDeliveries"/>
    <method name="EmitSignal">
      <arg name="name" type="s" direction="in"/>
      <arg name="args_text" type="s" direction="in"/>
    </method>
    <method name="CallClient">
      <arg name="bus_name" type="s" direction="in"/>
      <arg name="method" type="s" direction="in"/>
      <arg name="args_text" type="s" direction="in"/>
      <arg name="error" type="s" direction="out"/>
    </method>
    <method name="GetObjectName">
      <arg name="object_name" type="s" direction="out"/>
    </method>
    <method name="Quit"/>
  </interface>
</node>)xml";

} // namespace ssosim
