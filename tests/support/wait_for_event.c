// Waits for the named event of its last argument, which another process raises; ends with 7.

#include <windows.h>
#include <stdio.h>
int main(int count, char** arguments)
{
    HANDLE event = CreateEventA(NULL, TRUE, FALSE, arguments[count - 1]);
    puts("waits");
    fflush(stdout);
    return WaitForSingleObject(event, 60000) == WAIT_OBJECT_0 ? 7 : 1;
}
