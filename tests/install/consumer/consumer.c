/* A tiny application built against an installed tree. The public header comes
 * first so that it must compile on its own in plain C. */
#include <sso_api/sso_api.h>

#include <stdio.h>

int main(void)
{
    sso_login_state state = SSO_NOT_LOGIN;
    int size = get_size_of_sso_login_info_s();
    int term = sso_get_term_state(NULL);
    printf("login_info_size=%d term_state=%d state=%d\n", size, term, (int)state);
    return (size == (int)sizeof(sso_login_info_s) && term == -1) ? 0 : 1;
}
