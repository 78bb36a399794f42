/* A small application of the library: asks whether the SSO service answers,
 * then reads the signed-in account locally. Build it against an installed
 * tree with: cc hello_sso.c $(pkg-config --cflags --libs sso_api) */
#include <sso_api/sso_api.h>

#include <stdio.h>
#include <stdlib.h>

int main(void)
{
    int alive = sso_check_alive();
    printf("service answers: %s\n", alive == 0 ? "yes" : "no");

    sso_login_state state = SSO_NOT_LOGIN;
    if (sso_get_login_state(&state) != 0) {
        printf("login state: unknown\n");
        return 1;
    }
    printf("login state: %s\n", state == SSO_LOGEDIN ? "signed in" : "signed out");

    int count = 0;
    if (sso_get_account_number(&count) == 0)
        printf("registered accounts: %d\n", count);

    if (state == SSO_LOGEDIN) {
        sso_login_info_s info;
        if (sso_get_login_info(&info) == 0)
            printf("signed in as: %s\n", info.login_id);
        char *guid = NULL;
        if (sso_get_guid(&guid) == 0) {
            /* A GUID identifies the user: show only its first characters. */
            printf("account GUID: %.6s...\n", guid);
            free(guid);
        }
    }
    return alive == 0 ? 0 : 2;
}
