/* Starts and stops the installed library and shows the message for a code. */
#include <qx.h>
#include <stdio.h>

int main(void) {
    ApiVersionRecord version = {sizeof version, 1, 1, 0};
    StatusRecord status = {0, 0, 0};
    const StatusRecord notStarted = {1100, 0, 0};
    char message[256];

    if (!QXInitialize(&version, &status) || !QXTerminate(&status)) {
        fprintf(stderr, "failed with {%u, %u, %u}\n", status.Code, status.Detail1, status.Detail2);
        return 1;
    }
    if (QXFormatError(&notStarted, 0, sizeof message, message) == 0) {
        fprintf(stderr, "no message for code %u\n", notStarted.Code);
        return 1;
    }
    printf("library %u.%u.%u; code %u: %s\n", version.Major, version.Minor, version.Revision, notStarted.Code, message);
    return 0;
}
