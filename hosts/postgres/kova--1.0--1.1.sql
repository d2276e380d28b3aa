-- The type kova_text, and the versions of orders that indexes were built with.
\echo Use "ALTER EXTENSION kova UPDATE" to load this file. \quit

-- ---- kova_text ----

CREATE TYPE kova_text;
CREATE FUNCTION kova_text_in(cstring, oid, integer) RETURNS kova_text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION kova_text_out(kova_text) RETURNS cstring
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION kova_text_recv(internal, oid, integer) RETURNS kova_text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION kova_text_send(kova_text) RETURNS bytea
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION kova_text_typmod_in(cstring[]) RETURNS integer
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION kova_text_typmod_out(integer) RETURNS cstring
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE TYPE kova_text (
    INPUT = kova_text_in, OUTPUT = kova_text_out, RECEIVE = kova_text_recv, SEND = kova_text_send,
    TYPMOD_IN = kova_text_typmod_in, TYPMOD_OUT = kova_text_typmod_out,
    INTERNALLENGTH = VARIABLE, ALIGNMENT = int4, STORAGE = extended
);
COMMENT ON TYPE kova_text IS 'text in the order of a locale: kova_text(''de_DE'')';

-- No cast is implicit: one to text would let a comparison use another order without a word.
CREATE FUNCTION kova_text(text, integer, boolean) RETURNS kova_text
    AS 'MODULE_PATHNAME', 'kova_text_from_text' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION kova_text(kova_text, integer, boolean) RETURNS kova_text
    AS 'MODULE_PATHNAME', 'kova_text_set_locale' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION text(kova_text) RETURNS text
    AS 'MODULE_PATHNAME', 'kova_text_to_text' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE CAST (text AS kova_text) WITH FUNCTION kova_text(text, integer, boolean) AS ASSIGNMENT;
CREATE CAST (kova_text AS kova_text) WITH FUNCTION kova_text(kova_text, integer, boolean) AS IMPLICIT;
CREATE CAST (kova_text AS text) WITH FUNCTION text(kova_text) AS ASSIGNMENT;

CREATE FUNCTION kova_locale(kova_text) RETURNS text
    AS 'MODULE_PATHNAME', 'kova_text_locale' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
COMMENT ON FUNCTION kova_locale(kova_text) IS 'the locale of the value, NULL without one';
CREATE FUNCTION kova_key(kova_text) RETURNS bytea
    AS 'MODULE_PATHNAME', 'kova_text_key' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 5;
COMMENT ON FUNCTION kova_key(kova_text) IS 'bytes whose order is the order of the texts';

CREATE FUNCTION kova_text_lt(kova_text, kova_text) RETURNS boolean
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 2;
CREATE FUNCTION kova_text_le(kova_text, kova_text) RETURNS boolean
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 2;
CREATE FUNCTION kova_text_eq_support(internal) RETURNS internal
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION kova_text_eq(kova_text, kova_text) RETURNS boolean
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 2
    SUPPORT kova_text_eq_support;
CREATE FUNCTION kova_text_ne(kova_text, kova_text) RETURNS boolean
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 2;
CREATE FUNCTION kova_text_ge(kova_text, kova_text) RETURNS boolean
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 2;
CREATE FUNCTION kova_text_gt(kova_text, kova_text) RETURNS boolean
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 2;
CREATE FUNCTION kova_text_cmp(kova_text, kova_text) RETURNS integer
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 2;
CREATE FUNCTION kova_text_hash(kova_text) RETURNS integer
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 5;
CREATE FUNCTION kova_text_hash_extended(kova_text, bigint) RETURNS bigint
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 5;
CREATE FUNCTION kova_text_sortsupport(internal) RETURNS void
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE;
CREATE FUNCTION kova_text_smaller(kova_text, kova_text) RETURNS kova_text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 2;
CREATE FUNCTION kova_text_larger(kova_text, kova_text) RETURNS kova_text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 2;

CREATE OPERATOR < (LEFTARG = kova_text, RIGHTARG = kova_text, FUNCTION = kova_text_lt,
    COMMUTATOR = >, NEGATOR = >=, RESTRICT = scalarltsel, JOIN = scalarltjoinsel);
CREATE OPERATOR <= (LEFTARG = kova_text, RIGHTARG = kova_text, FUNCTION = kova_text_le,
    COMMUTATOR = >=, NEGATOR = >, RESTRICT = scalarlesel, JOIN = scalarlejoinsel);
-- Not HASHES: the other side of a join may have no locale to be hashed by.
CREATE OPERATOR = (LEFTARG = kova_text, RIGHTARG = kova_text, FUNCTION = kova_text_eq,
    COMMUTATOR = =, NEGATOR = <>, RESTRICT = eqsel, JOIN = eqjoinsel, MERGES);
CREATE OPERATOR <> (LEFTARG = kova_text, RIGHTARG = kova_text, FUNCTION = kova_text_ne,
    COMMUTATOR = <>, NEGATOR = =, RESTRICT = neqsel, JOIN = neqjoinsel);
CREATE OPERATOR >= (LEFTARG = kova_text, RIGHTARG = kova_text, FUNCTION = kova_text_ge,
    COMMUTATOR = <=, NEGATOR = <, RESTRICT = scalargesel, JOIN = scalargejoinsel);
CREATE OPERATOR > (LEFTARG = kova_text, RIGHTARG = kova_text, FUNCTION = kova_text_gt,
    COMMUTATOR = <, NEGATOR = <=, RESTRICT = scalargtsel, JOIN = scalargtjoinsel);

CREATE OPERATOR CLASS kova_text_ops DEFAULT FOR TYPE kova_text USING btree AS
    OPERATOR 1 <, OPERATOR 2 <=, OPERATOR 3 =, OPERATOR 4 >=, OPERATOR 5 >,
    FUNCTION 1 kova_text_cmp(kova_text, kova_text),
    FUNCTION 2 kova_text_sortsupport(internal);
CREATE OPERATOR CLASS kova_text_hash_ops DEFAULT FOR TYPE kova_text USING hash AS
    OPERATOR 1 =,
    FUNCTION 1 kova_text_hash(kova_text),
    FUNCTION 2 kova_text_hash_extended(kova_text, bigint);

CREATE AGGREGATE min(kova_text) (SFUNC = kova_text_smaller, STYPE = kova_text,
    COMBINEFUNC = kova_text_smaller, SORTOP = <, PARALLEL = SAFE);
CREATE AGGREGATE max(kova_text) (SFUNC = kova_text_larger, STYPE = kova_text,
    COMBINEFUNC = kova_text_larger, SORTOP = >, PARALLEL = SAFE);

-- ---- Versions of indexes ----

-- An index's file changes when it is rebuilt, and then another version may have been there.
CREATE TABLE kova_index_version (
    index oid PRIMARY KEY,
    file oid NOT NULL,
    versions text[] NOT NULL
);
COMMENT ON TABLE kova_index_version IS 'the orders with which indexes were built';
GRANT SELECT ON kova_index_version TO PUBLIC;

-- The locales on which an index depends; NULL among them for one that its definition does not name.
CREATE FUNCTION kova_index_locales(index regclass) RETURNS text[]
    AS 'MODULE_PATHNAME' LANGUAGE C STABLE STRICT PARALLEL SAFE;

-- The versions that they have now, each after its locale.
CREATE FUNCTION kova_index_versions_now(index regclass) RETURNS text[]
    LANGUAGE plpgsql STABLE STRICT SET search_path = pg_catalog, @extschema@, pg_temp AS $$
DECLARE
    name text;
    versions text[] := '{}';
BEGIN
    FOREACH name IN ARRAY kova_index_locales(index) LOOP
        BEGIN
            versions := versions || coalesce(name || ' ' || kova_version(name), 'unknown');
        EXCEPTION WHEN undefined_object OR data_corrupted OR object_not_in_prerequisite_state THEN
            versions := versions || (name || ' missing');
        END;
    END LOOP;
    RETURN versions;
END $$;

-- The indexes in which something of the extension stands.
CREATE FUNCTION kova_indexes() RETURNS SETOF regclass
    LANGUAGE sql STABLE SET search_path = pg_catalog, @extschema@, pg_temp AS $$
    SELECT DISTINCT i.indexrelid::regclass
    FROM pg_depend m
        JOIN pg_extension e ON m.refclassid = 'pg_extension'::regclass AND m.refobjid = e.oid
        JOIN pg_depend d ON d.refclassid = m.classid AND d.refobjid = m.objid
        JOIN pg_index i ON d.classid = 'pg_class'::regclass AND d.objid = i.indexrelid
    WHERE e.extname = 'kova' AND m.deptype = 'e'
        AND pg_relation_filenode(i.indexrelid) IS NOT NULL
$$;

CREATE FUNCTION kova_check_indexes(OUT index regclass, OUT state text, OUT built_with text[],
                                   OUT now text[]) RETURNS SETOF record
    LANGUAGE sql STABLE SET search_path = pg_catalog, @extschema@, pg_temp AS $$
    SELECT i.index,
        CASE WHEN v.file IS DISTINCT FROM pg_relation_filenode(i.index)
                  OR 'unknown' = ANY (n.versions) THEN 'unknown'
             WHEN v.versions = n.versions THEN 'ok'
             ELSE 'rebuild' END,
        v.versions, n.versions
    FROM kova_indexes() AS i(index)
        CROSS JOIN LATERAL (SELECT kova_index_versions_now(i.index)) AS n(versions)
        LEFT JOIN kova_index_version v ON v.index = i.index
    WHERE n.versions <> '{}'
    ORDER BY i.index::text
$$;
COMMENT ON FUNCTION kova_check_indexes() IS
    'whether each index was built with the orders of today: ok, rebuild or unknown';

-- Notes that an index was built with the orders of today. Whoever calls it has to know that.
CREATE FUNCTION kova_stamp_index(index regclass) RETURNS void
    LANGUAGE sql SET search_path = pg_catalog, @extschema@, pg_temp AS $$
    INSERT INTO kova_index_version
        SELECT index, pg_relation_filenode(index), kova_index_versions_now(index)
        ON CONFLICT (index) DO UPDATE SET file = excluded.file, versions = excluded.versions
$$;
REVOKE EXECUTE ON FUNCTION kova_stamp_index(regclass) FROM PUBLIC;

CREATE FUNCTION kova_reindex(index regclass) RETURNS void
    LANGUAGE plpgsql STRICT SECURITY DEFINER SET search_path = pg_catalog, @extschema@, pg_temp AS $$
BEGIN
    IF NOT (SELECT pg_has_role(session_user, relowner, 'MEMBER') FROM pg_class WHERE oid = index) THEN
        RAISE insufficient_privilege USING MESSAGE = 'must be owner of index ' || index;
    END IF;
    EXECUTE 'REINDEX INDEX ' || index;
    PERFORM kova_stamp_index(index);
END $$;
COMMENT ON FUNCTION kova_reindex(regclass) IS
    'rebuilds an index and notes the orders with which this was done';

-- Notes the versions of indexes that a command has made: an index of its own, those of partitions,
-- and those of a table's constraints. What is there already is left as it is.
CREATE FUNCTION kova_note_indexes() RETURNS event_trigger
    LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, @extschema@, pg_temp AS $$
BEGIN
    INSERT INTO kova_index_version
        SELECT i, pg_relation_filenode(i), kova_index_versions_now(i)
        FROM kova_indexes() i
            JOIN pg_index x ON x.indexrelid = i
            JOIN pg_class c ON c.oid = i
            JOIN pg_event_trigger_ddl_commands() d ON d.classid = 'pg_class'::regclass
        WHERE d.command_tag = 'CREATE INDEX' AND i IN (SELECT relid FROM pg_partition_tree(d.objid))
            OR d.command_tag = 'CREATE INDEX' AND d.objid = i
            OR c.xmin::text = (pg_current_xact_id()::text::numeric % 4294967296)::text
                AND x.indrelid = d.objid
        ON CONFLICT (index) DO NOTHING;
END $$;
CREATE EVENT TRIGGER kova_note_indexes ON ddl_command_end
    WHEN TAG IN ('CREATE INDEX', 'CREATE TABLE', 'ALTER TABLE', 'CREATE MATERIALIZED VIEW')
    EXECUTE FUNCTION kova_note_indexes();
ALTER EVENT TRIGGER kova_note_indexes ENABLE ALWAYS;

CREATE FUNCTION kova_forget_indexes() RETURNS event_trigger
    LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, @extschema@, pg_temp AS $$
BEGIN
    DELETE FROM kova_index_version
        WHERE index IN (SELECT objid FROM pg_event_trigger_dropped_objects()
                        WHERE classid = 'pg_class'::regclass);
END $$;
CREATE EVENT TRIGGER kova_forget_indexes ON sql_drop
    WHEN TAG IN ('DROP INDEX', 'DROP TABLE', 'ALTER TABLE', 'DROP MATERIALIZED VIEW', 'DROP SCHEMA')
    EXECUTE FUNCTION kova_forget_indexes();
ALTER EVENT TRIGGER kova_forget_indexes ENABLE ALWAYS;
