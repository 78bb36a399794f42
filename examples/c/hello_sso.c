/* The smallest application of the library: it links libsso_api, which marks
 * itself alive and learns the application's id when it is loaded. */
#include <sso_api/sso_api.h>

#include <stdio.h>

int main(void)
{
    printf("sso_login_info_s is %d bytes\n", get_size_of_sso_login_info_s());
    return 0;
}
