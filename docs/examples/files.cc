// Files: writing, appending, reading, status, errors.
#include <stdio.h>

#include <mcl/tavnomcl.h>

int main()
{
    VELM_CFile file;
    VELM_CFileException error(0, 0, NULL);
    if (!file.Open("no-such-directory/file", VELM_CFile::modeWrite, &error))
        printf("%s: %s\n", file.GetFilePath().m_data, error.m_strMessage.m_data);

    if (!file.Open("lines.txt", VELM_CFile::modeWrite)) // emptied
        return 1;
    file.Write("one\n", 4);
    file.Open("lines.txt", VELM_CFile::modeAppend); // closes the first stream
    file.Write("two\n", 4);
    file.Close();

    VELM_CFileStatus status;
    if (VELM_CFile::GetStatus("lines.txt", status))
        printf("%d bytes, %s\n", static_cast<int>(status.m_size), status.m_attribute == 0x10 ? "directory" : "file");

    if (!file.Open("lines.txt")) // reading
        return 1;
    char bytes[16];
    file.Seek(4, VELM_CFile::seekBegin);
    printf("read %u bytes\n", file.Read(bytes, sizeof bytes)); // what is left
    file.SeekToBegin();
    VELM_CArchive ar(&file, VELM_CArchive::load); // an archive reads text line by line
    VELM_CString line;
    while (ar.ReadString(line) || !line.IsEmpty())
        printf("line \"%s\"\n", line.m_data);
    ar.Close();

    if (file.Open("/dev/full", VELM_CFile::modeWrite)) // a disk that is always full
        file.Write("x", 1);
    if (VELM_CFileException* pError = VELM_CFile::getException()) {
        printf("a transfer failed: cause %d\n", pError->m_cause);
        delete pError;
    }
    return VELM_CFile::ERROR_CODE; // taken: 0 again
}
