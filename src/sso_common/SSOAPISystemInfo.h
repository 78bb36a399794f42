// Product feature flags the library consults: whether the device is a hotel
// (B2B) product, which refuses easy-setup sign-in. The answer is cached from
// the first successful query until sso_cb_reset.
#pragma once

class SSOAPISystemInfo {
public:
    static bool IsHotelModeSupported();
    static void ResetHotelModeSupported();

private:
    static bool m_IsB2BOptionEnabled();

    // Plain process-wide values: written at most once between resets, with
    // the same answer.
    static bool m_bB2BOptionChecked;
    static bool m_bB2BOptionSupported;
};
