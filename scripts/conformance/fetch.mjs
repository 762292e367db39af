// fetch() as the suite wants it, carried out by the bridge program.

import { spawn } from 'node:child_process'
import { createInterface } from 'node:readline'

const bytes = text => Buffer.from(text, 'utf8').toString('latin1')

class Answer {
  constructor ({ status, headers, body, source }) {
    this.status = status
    this.statusText = ''
    this.headers = new Headers(headers)
    this.body = body
    this.source = source
  }

  async text () { return Buffer.from(this.body, 'latin1').toString('utf8') }
}

// One process of the bridge program.
class Process {
  #waiting = new Map()
  #count = 0
  #process

  constructor (program, options) {
    this.#process = spawn(program, options, { stdio: ['pipe', 'pipe', 'inherit'] })
    createInterface({ input: this.#process.stdout }).on('line', line => {
      const answer = JSON.parse(line)
      const { resolve, reject } = this.#waiting.get(answer.id)
      this.#waiting.delete(answer.id)
      if ('error' in answer) reject(new TypeError(answer.error))
      else resolve(new Answer(answer))
    })
    this.#process.on('exit', code => {
      for (const { reject } of this.#waiting.values()) reject(new Error(`the bridge ended: ${code}`))
    })
  }

  ask (request) {
    return new Promise((resolve, reject) => {
      const id = ++this.#count
      this.#waiting.set(id, { resolve, reject })
      this.#process.stdin.write(JSON.stringify({ id, ...request }) + '\n')
    })
  }

  end () { this.#process.stdin.end() }
  kill () { this.#process.kill('SIGKILL') }
}

export class Bridge {
  #start
  #shared

  // With its cache in the folder `cache`, or in memory; `restarts`: a new process for every request,
  // killed once it has answered.
  constructor (program, cache, restarts) {
    this.#start = () => new Process(program, cache ? ['--cache', cache] : [])
    if (!restarts) this.#shared = this.#start()
  }

  fetch = async (url, { method = 'GET', headers = [], body, cache, redirect } = {}) => {
    const fields = headers.map(([name, value]) => [name, String(value)])
    const text = body === undefined ? null : bytes(body)
    const process = this.#shared ?? this.#start()
    try {
      return await process.ask({ url, method, headers: fields, body: text, cache, redirect })
    } finally {
      if (!this.#shared) process.kill()
    }
  }

  close () { this.#shared?.end() }
}
