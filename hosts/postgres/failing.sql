-- Memory that runs short, for an extension built with KOVA_FAILING_MEMORY: each statement runs with the
-- n-th allocation of the library failing, for n = 1, 2, ... until it needs no more. What fails is error
-- 53200 and keeps no memory, what does not fail is right. Some run each time with a data root of another
-- name, so that they open everything anew. Prints what is otherwise, then whether enough failed. The
-- variable data is the data root.
SELECT set_config('test.data', :'data', false) \g /dev/null
CREATE FUNCTION pg_temp.root(n integer) RETURNS void LANGUAGE sql AS $$
    SELECT set_config('kova.root', current_setting('test.data') ||
        replace(replace(n::bit(16)::text, '0', '//'), '1', '/.'), false) $$;
CREATE FUNCTION pg_temp.fails(anew integer, statement text, wanted text)
    RETURNS TABLE (failures integer, said text) LANGUAGE plpgsql AS $$
DECLARE got text; before record; after record;
    used text := 'SELECT used_bytes, total_nblocks FROM pg_backend_memory_contexts WHERE name = ''kova''';
BEGIN
    failures := 0;
    PERFORM pg_temp.root(anew);
    EXECUTE statement; -- what it needs of the server, and what it opens, is there
    FOR n IN 1 .. 9999 LOOP
        IF anew > 0 THEN PERFORM pg_temp.root(anew + n); END IF;
        EXECUTE used INTO before;
        PERFORM set_config('kova.failing', n::text, false);
        BEGIN
            EXECUTE statement INTO got;
        EXCEPTION WHEN OTHERS THEN
            got := SQLSTATE;
        END;
        EXIT WHEN current_setting('kova.failing') <> '0';
        failures := n;
        EXECUTE used INTO after;
        CONTINUE WHEN got = wanted OR (got = '53200' AND after.used_bytes - before.used_bytes <=
            64 * (after.total_nblocks - before.total_nblocks)); -- the head of a block is no loss
        said := format('%s, allocation %s: %s, %s to %s', statement, n, got, before, after);
        RETURN NEXT;
        EXIT;
    END LOOP;
    PERFORM set_config('kova.failing', '0', false);
    EXECUTE statement INTO got;
    said := CASE WHEN got IS DISTINCT FROM wanted THEN format('%s: %s', statement, got) END;
    RETURN NEXT;
END $$;
CREATE TEMP TABLE found AS SELECT f.* FROM (VALUES
    (10000, 'SELECT kova_compare(''öl'', ''Zebra'', ''de_DE'')', '-1'),
    (20000, 'SELECT kova_convert(''\xa28388cc95'', ''IBM-37'', ''utf8'')', '\x736368c3b66e'),
    (30000, 'SELECT kova_convert(''\xb4c1'', ''EUC-JP'', ''utf8'')', '\xe6bca2'),
    (0, 'SELECT kova_key(repeat(''öl '', 9999), ''de_DE'') < kova_key(repeat(''öl '', 10000), ''de_DE'')', 'true'),
    (0, 'SELECT kova_upper(''öl'', ''de_DE'')', 'ÖL'),
    (0, 'SELECT kova_number(1234.5, ''%''''.2f'', ''de_DE'')', '1.234,50'),
    (0, 'SELECT kova_money(-1234.5, ''%n'', ''en_US'')', '-$1,234.50'),
    (0, 'SELECT kova_date(''1990-10-03'', ''%A, %x'', ''de_DE'')', 'Mittwoch, 03.10.1990'),
    (0, 'SELECT min(s::kova_text(''de_DE'')) FROM unnest(''{z,ö,p}''::text[]) s', 'ö')
) AS rows(anew, statement, wanted), LATERAL pg_temp.fails(anew, statement, wanted) f;
SELECT said FROM found WHERE said IS NOT NULL;
SELECT max(failures) > 1000 FROM found;
