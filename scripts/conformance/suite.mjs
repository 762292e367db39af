// Runs the public conformance tests for HTTP caches against the bridge as a private cache:
//   node suite.mjs PACKAGE_FOLDER BRIDGE_PROGRAM MODE KEPT_FILE [--update | TEST_ID]
// MODE is where the cache lies: `memory`, `disk`, or `restarts`: on disk, with a new process for
// every request that is killed as soon as it has answered. KEPT_FILE lists the tests that are kept,
// a line each, with the modes where not in all; losing one is an error. The tests' own server runs
// here, on a port of the loopback that the kernel chooses.

import fs from 'node:fs'
import http from 'node:http'
import os from 'node:os'
import path from 'node:path'
import { pathToFileURL } from 'node:url'
import { Bridge } from './fetch.mjs'

const [folder, program, mode, keptFile, option] = process.argv.slice(2)
const update = option === '--update'
const onlyId = update ? undefined : option
const load = file => import(pathToFileURL(path.resolve(folder, file)))
const { default: suites } = await load('tests/index.mjs')
const { runTests, getResults } = await load('client/runner.mjs')
const { determineTestResult } = await load('lib/display.mjs')
const handlers = {}
for (const name of ['config', 'state', 'test']) {
  handlers[name] = (await load(`server/handle-${name}.mjs`)).default
}

const server = http.createServer((request, response) => {
  const [kind, ...rest] = new URL(request.url, 'http://localhost').pathname.slice(1).split('/')
  if (kind in handlers) handlers[kind](rest, request, response)
  else response.writeHead(404).end()
})
await new Promise(resolve => server.listen(0, '127.0.0.1', resolve))

// Browsers are not asked what a page cannot observe: redirect answers and its own conditions. A
// library can show both. What remains left out concerns shared caches alone.
const forSharedCaches = /-shared|^other-authorization/
const beyondBrowsers = new Set()
for (const suite of suites) {
  for (const test of suite.tests) {
    if (test.browser_skip && !forSharedCaches.test(test.id)) {
      test.browser_skip = false
      beyondBrowsers.add(test.id)
    }
  }
  if (onlyId) suite.tests = suite.tests.filter(test => test.id === onlyId)
  if (onlyId) suite.tests.forEach(test => { test.dump = true })
}

// What is not kept on purpose, though it is required.
const reasons = {
  'age-parse-': 'the package reads RFC 7234; RFC 9111 section 5.1 takes the first member and ignores what is no number',
  '304-etag-update-response-ETag': 'a 304 with another strong tag confirms nothing (RFC 9111 section 4.3.4)',
  'stale-close-': 'a library reports a lost connection as an error where a gateway answers 504',
  'headers-store-Transfer-Encoding': 'a transfer coding that nobody asked for is refused (RFC 9112 section 6.1)'
}
const reasonFor = id => Object.entries(reasons).find(([start]) => id.startsWith(start))?.[1]

const cache = mode === 'memory' ? undefined : fs.mkdtempSync(path.join(os.tmpdir(), 'conformance-'))
const bridge = new Bridge(program, cache, mode === 'restarts')
const log = console.log
if (!onlyId) console.log = () => {}
await runTests(suites, bridge.fetch, true, `http://127.0.0.1:${server.address().port}`,
  mode === 'restarts' ? 20 : 100)
console.log = log
bridge.close()
server.close()
server.closeAllConnections()
if (cache) fs.rmSync(cache, { recursive: true, force: true })

const results = getResults()
const words = { '✅': 'kept', Y: 'yes', N: 'no', '⚪️': 'not reached (a test it depends on is not kept)' }
const tally = {}
const lines = []
const kept = new Set()
for (const test of suites.flatMap(suite => suite.tests)) {
  if (!(test.id in results)) continue
  const verdict = onlyId
    ? String(results[test.id])
    : words[determineTestResult(suites, test.id, results)[2]] ?? 'not kept'
  const kind = test.kind ?? 'required'
  const group = kind + (beyondBrowsers.has(test.id) ? ', beyond browsers' : '')
  tally[group] ??= { kept: 0, total: 0 }
  tally[group].total += 1
  if (verdict === 'kept' || verdict === 'yes') {
    tally[group].kept += 1
    if (kind !== 'check') kept.add(test.id)
  } else if (kind !== 'check') {
    const said = reasonFor(test.id) ?? (results[test.id] === true ? undefined : results[test.id][1])
    const detail = said === undefined ? '' : `: ${said}`
    lines.push(`  ${group} ${test.id} is ${verdict}${detail}`)
  }
}
log(`${mode}: ` + Object.keys(tally).sort((a, b) => a.localeCompare(b))
  .map(group => `${group} ${tally[group].kept}/${tally[group].total}`).join('; '))
if (lines.length > 0) log(lines.join('\n'))

if (onlyId) process.exit()

const modes = ['memory', 'disk', 'restarts']
const known = new Map(fs.readFileSync(keptFile, 'utf8').split('\n').filter(Boolean).map(line => {
  const [id, ...where] = line.split(' ')
  return [id, new Set(where.length > 0 ? where : modes)]
}))
const lost = [...known].filter(([id, where]) => where.has(mode) && !kept.has(id)).map(([id]) => id)
const won = [...kept].filter(id => !known.get(id)?.has(mode))
if (update) {
  won.forEach(id => known.set(id, (known.get(id) ?? new Set()).add(mode)))
  lost.forEach(id => known.get(id).delete(mode))
  const line = ([id, where]) => where.size === modes.length ? id : `${id} ${[...where].join(' ')}`
  fs.writeFileSync(keptFile,
    [...known].filter(([, where]) => where.size > 0).map(line).sort().join('\n') + '\n')
} else {
  if (won.length > 0) log(`kept and not listed yet (--update lists them): ${won.join(', ')}`)
  if (lost.length > 0) log(`LOST: ${lost.join(', ')}`)
  process.exitCode = lost.length > 0 ? 1 : 0
}
