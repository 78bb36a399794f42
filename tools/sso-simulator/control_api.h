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
    <!-- Per client object name: requests accepted, refused (answered
         anything but 1, or an error), results delivered, results dropped.
         Reset clears them; ClearJournal and ClearDeliveries do not. -->
    <method name="GetTallies">
      <arg name="tallies" type="a(stttt)" direction="out"/>
    </method>
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
    <method name="AddAccount">
      <arg name="fields" type="a{sv}" direction="in"/>
      <arg name="guid" type="s" direction="out"/>
    </method>
    <method name="RemoveAccount">
      <arg name="login_id_or_guid" type="s" direction="in"/>
    </method>
    <method name="SignIn">
      <arg name="login_id_or_guid" type="s" direction="in"/>
    </method>
    <method name="SignOut"/>
    <method name="GetAccounts">
      <arg name="json" type="s" direction="out"/>
    </method>
    <method name="GetState">
      <arg name="json" type="s" direction="out"/>
    </method>
    <method name="SetApplicationData">
      <arg name="package" type="s" direction="in"/>
      <arg name="guid" type="s" direction="in"/>
      <arg name="key" type="s" direction="in"/>
      <arg name="value" type="s" direction="in"/>
    </method>
    <method name="RemoveApplicationData">
      <arg name="package" type="s" direction="in"/>
    </method>
    <method name="WritePublicData">
      <arg name="text" type="s" direction="in"/>
    </method>
    <method name="Publish"/>
    <method name="GetIssued">
      <arg name="json" type="s" direction="out"/>
    </method>
    <method name="ClearIssued"/>
    <method name="RegisterClient">
      <arg name="app_id" type="s" direction="in"/>
      <arg name="secret" type="s" direction="in"/>
    </method>
    <method name="RegisterWhitelist">
      <arg name="package" type="s" direction="in"/>
      <arg name="signature" type="s" direction="in"/>
    </method>
  </interface>
</node>)xml";

} // namespace ssosim
