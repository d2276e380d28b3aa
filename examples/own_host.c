/* A host with its own memory, files and environment: the data come out of an archive in memory.
 *   own_host ROOT
 * The files of a data root that a locale takes are packed into one block first. After that the
 * library calls nothing but the functions that this host gives it. */
#include <kova.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* ---- The archive: names and contents in one block ---- */

typedef struct entry {
    const char *name; /* below the data root, with backslashes as the library writes them */
    size_t begin, size;
} entry;

static entry entries[] = {
    {"kova\\lc11\\default.lco",     0, 0},
    {"kova\\lc11\\sv_se\\e005.lco", 0, 0}
};
enum { entry_count = sizeof entries / sizeof *entries };
static unsigned char *archive;

static int pack(const char *root) {
    size_t used = 0;
    for (size_t i = 0; i < entry_count; i++) {
        char path[1024];
        snprintf(path, sizeof path, "%s/%s", root, entries[i].name);
        for (char *c = path; *c; c++)
            if (*c == '\\') *c = '/';
        FILE *file = fopen(path, "rb");
        if (!file || fseek(file, 0, SEEK_END)) return -1;
        const long size = ftell(file);
        rewind(file);
        unsigned char *larger = size < 0 ? NULL : realloc(archive, used + (size_t)size);
        if (!larger) return -1;
        archive = larger;
        entries[i].begin = used;
        entries[i].size = fread(archive + used, 1, (size_t)size, file);
        used += entries[i].size;
        fclose(file);
    }
    return 0;
}

/* ---- The hooks ---- */

static size_t blocks, opened;

typedef struct stream {
    const unsigned char *next, *end;
    int at_end;
} stream;

static void *host_malloc(size_t size) {
    void *block = malloc(size);
    if (block) blocks++;
    return block;
}
static void host_free(void *block) {
    if (block) blocks--;
    free(block);
}
static void *host_fopen(const char *path, const char *mode) {
    static const char root[] = "c:\\vantor\\";
    if (*mode != 'r' || strncmp(path, root, sizeof root - 1) != 0) return NULL;
    for (size_t i = 0; i < entry_count; i++) {
        if (strcmp(path + sizeof root - 1, entries[i].name) != 0) continue;
        stream *in = malloc(sizeof *in);
        if (!in) return NULL;
        in->next = archive + entries[i].begin;
        in->end = in->next + entries[i].size;
        in->at_end = 0;
        opened++;
        return in;
    }
    return NULL;
}
static int host_fclose(void *in) {
    free(in);
    return 0;
}
static int host_getc(void *file) {
    stream *in = file;
    if (in->next < in->end) return *in->next++;
    in->at_end = 1;
    return EOF;
}
static int host_ungetc(int byte, void *file) {
    stream *in = file;
    if (byte != EOF) in->next--;
    return byte;
}
static char *host_fgets(char *buf, int size, void *file) {
    int used = 0;
    for (int byte = 0; used < size - 1 && byte != '\n';) {
        if ((byte = host_getc(file)) == EOF) break;
        buf[used++] = (char)byte;
    }
    if (used) buf[used] = 0;
    return used ? buf : NULL;
}
static int host_feof(void *file) { return ((stream *)file)->at_end; }
static int host_ferror(void *file) { return file == NULL; }
static char *host_getenv(const char *name) {
    static char locale[] = "sv_SE.unicode";
    return strcmp(name, "KO_ALL") == 0 ? locale : NULL;
}

static const struct {
    int code;
    ko_extfn_t fn;
} hooks[] = {
    {KO_EXT_MALLOC, (ko_extfn_t)host_malloc},
    {KO_EXT_FREE,   (ko_extfn_t)host_free  },
    {KO_EXT_FOPEN,  (ko_extfn_t)host_fopen },
    {KO_EXT_FCLOSE, (ko_extfn_t)host_fclose},
    {KO_EXT_GETC,   (ko_extfn_t)host_getc  },
    {KO_EXT_FGETC,  (ko_extfn_t)host_getc  },
    {KO_EXT_UNGETC, (ko_extfn_t)host_ungetc},
    {KO_EXT_FGETS,  (ko_extfn_t)host_fgets },
    {KO_EXT_FEOF,   (ko_extfn_t)host_feof  },
    {KO_EXT_FERROR, (ko_extfn_t)host_ferror},
    {KO_EXT_GETENV, (ko_extfn_t)host_getenv},
};

int main(int argc, char **argv) {
    if (argc != 2 || pack(argv[1]) != 0) {
        fprintf(stderr, "usage: own_host ROOT, a data root with sv_SE.unicode\n");
        return 2;
    }
    for (size_t i = 0; i < sizeof hooks / sizeof *hooks; i++)
        ko_setextfunc(NULL, hooks[i].code, hooks[i].fn);
    /* The registry of code sets is no file here: as none can be read, the built-in one takes
     * effect. */
    ko_cache_registry(NULL, "");
    ko_lc_t loc;
    const char *spec = ko_ext_getenv("KO_ALL"); /* of the host's environment */
    if (ko_lc_load(&loc, spec, NULL, NULL) != 0) {
        fprintf(stderr, "error %d\n", *ko_ext_errno(loc));
        return 1;
    }
    printf("z < ö: %s\n", ko_full_wcscoll(loc, u"z", u"ö") < 0 ? "yes" : "no");
    printf("files opened: %zu\n", opened);
    ko_lc_unload(loc);
    printf("blocks left: %zu\n", blocks);
    free(archive);
    return 0;
}
